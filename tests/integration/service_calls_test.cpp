// Synchronous calls, agent updates and their status, against the service manager in another
// process.
#include <cstdlib>

#include "service_fixture.h"

namespace {

int get_level() {
  int level = 0;
  return korvane_svcmgr_get_agent_api_level(&level);
}

int get_license() {
  char *text = nullptr;
  const int error = korvane_svcmgr_get_license_fulltext(&text);
  std::free(text);
  return error == SVCMGR_ERROR_NONE && text == nullptr ? 1 : error;  // 1: success without a text
}

int update_listed() {
  korvane_svcmgr_agent_list_h list = nullptr;
  korvane_svcmgr_agent_list_create(&list);
  korvane_svcmgr_agent_list_add(list, "com.korvane.device.vision");
  const int error = korvane_svcmgr_request_update_with_list(list, nullptr);
  korvane_svcmgr_agent_list_destroy(list);
  return error;
}

class ServiceCallsTest : public ServiceTest {
 protected:
  using Statuses = std::vector<korvane_svcmgr_update_status_e>;

  static void on_update(korvane_svcmgr_update_status_e status, void *user_data) {
    static_cast<Statuses *>(user_data)->push_back(status);
  }
};

TEST_F(ServiceCallsTest, ServiceDiesBeforeItsReply) {
  const struct {
    const char *method;  ///< the name by which the emulator knows it
    int (*run)();
    int lost;  ///< what it returns then
  } calls[] = {
      {"get_agent_api_level", get_level, SVCMGR_ERROR_INVALID_API_LEVEL},
      {"get_license", get_license, 1},
      {"request_update", korvane_svcmgr_request_update, SVCMGR_ERROR_NOT_CONNECTED},
      {"request_update_with_list", update_listed, SVCMGR_ERROR_NOT_CONNECTED},
  };
  for (const auto &call : calls) {
    connect();
    control({"crash-before-reply", call.method});
    EXPECT_EQ(call.run(), call.lost) << call.method;
    ASSERT_TRUE(run_until([this] { return !connection_events_.empty(); })) << call.method;
    EXPECT_EQ(take_connection_events(),
              (std::vector<ConnectionEvent>{{0, SVCMGR_CONNECTION_DISCONNECTED}}));
    emulator_.wait();
    start_emulator();
    ASSERT_TRUE(run_until([this] { return !connection_events_.empty(); })) << call.method;
    take_connection_events();
    korvane_svcmgr_disconnect();
  }
}

TEST_F(ServiceCallsTest, AnUpdateOfAgentsIsFollowedToItsEnd) {
  connect();
  Statuses statuses;
  ASSERT_EQ(korvane_svcmgr_set_update_status_cb(on_update, &statuses), SVCMGR_ERROR_NONE);
  const struct {
    int (*request)();
    std::vector<std::string> prepare;
    korvane_svcmgr_update_status_e end;
  } rows[] = {
      {korvane_svcmgr_request_update, {}, SVCMGR_UPDATE_STATUS_COMPLETED},
      {update_listed, {"fail-update", "7"}, SVCMGR_UPDATE_STATUS_FAILED_CODE_7},
      {update_listed, {}, SVCMGR_UPDATE_STATUS_COMPLETED},
  };
  for (const auto &row : rows) {
    if (!row.prepare.empty()) control(row.prepare);
    statuses.clear();
    ASSERT_EQ(row.request(), SVCMGR_ERROR_NONE);
    ASSERT_TRUE(run_until([&] { return statuses.size() >= 2; }));
    settle();
    EXPECT_EQ(statuses, (Statuses{SVCMGR_UPDATE_STATUS_STARTED, row.end}));
    bool updating = true;
    EXPECT_EQ(korvane_svcmgr_is_being_updated(&updating), SVCMGR_ERROR_NONE);
    EXPECT_FALSE(updating);
  }
  korvane_svcmgr_unset_update_status_cb();
}

}  // namespace
