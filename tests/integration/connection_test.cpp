// The life of a connection, with the service manager in another process.
#include "service_fixture.h"

namespace {

using Events = std::vector<std::pair<int, korvane_svcmgr_connection_state_e>>;

const Events kLost = {{0, SVCMGR_CONNECTION_DISCONNECTED}};
const Events kRefused = {{SVCMGR_ERROR_PERMISSION_DENIED, SVCMGR_CONNECTION_REJECTED}};
const Events kBack = {{0, SVCMGR_CONNECTION_CONNECTED}};

class ConnectionTest : public ServiceTest {
 protected:
  /** Whether the connection carries a call. */
  static int call() {
    int level = 0;
    return korvane_svcmgr_get_agent_api_level(&level);
  }
  static int get_license() {
    char *text = nullptr;
    const int error = korvane_svcmgr_get_license_fulltext(&text);
    return text == nullptr ? error : 1;
  }
  static int update_listed() {
    korvane_svcmgr_agent_list_h list = nullptr;
    korvane_svcmgr_agent_list_create(&list);
    const int error = korvane_svcmgr_request_update_with_list(list, nullptr);
    korvane_svcmgr_agent_list_destroy(list);
    return error;
  }
  bool heard_something() const { return !connection_events_.empty(); }
};

TEST_F(ConnectionTest, KilledBeforeItAnswers) {
  emulator_.stop();
  ASSERT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE);
  kill_emulator();
  ASSERT_TRUE(run_until([this] { return heard_something(); }));
  EXPECT_EQ(take_connection_events(), kRefused);
}

TEST_F(ConnectionTest, RestartOfTheServiceIsALossAndANewConnection) {
  connect();
  control({"restart"});
  ASSERT_TRUE(run_until([this] { return connection_events_.size() >= 2; }));
  EXPECT_EQ(take_connection_events(), (Events{kLost[0], kBack[0]}));
  EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
}

TEST_F(ConnectionTest, ServiceDiesBeforeItsReply) {
  const struct {
    const char *method;  ///< the name by which the emulator knows it
    int (*run)();
    int lost;  ///< what it returns then
  } calls[] = {
      {"get_agent_api_level", call, SVCMGR_ERROR_INVALID_API_LEVEL},
      {"get_license", get_license, SVCMGR_ERROR_NONE},
      {"request_update", korvane_svcmgr_request_update, SVCMGR_ERROR_NOT_CONNECTED},
      {"request_update_with_list", update_listed, SVCMGR_ERROR_NOT_CONNECTED},
  };
  for (const auto &entry : calls) {
    connect();
    control({"crash-before-reply", entry.method});
    EXPECT_EQ(entry.run(), entry.lost) << entry.method;
    ASSERT_TRUE(run_until([this] { return heard_something(); })) << entry.method;
    EXPECT_EQ(take_connection_events(), kLost);
    EXPECT_EQ(call(), SVCMGR_ERROR_NOT_CONNECTED);
    emulator_.wait();
    start_emulator();
    ASSERT_TRUE(run_until([this] { return heard_something(); })) << entry.method;
    EXPECT_EQ(take_connection_events(), kBack);
    korvane_svcmgr_disconnect();
  }
}

TEST_F(ConnectionTest, GarbageOnEitherPortIsALostConnection) {
  for (const char *port : {"main", "callback"}) {
    for (const char *kind : {"oversized", "rubbish", "half-frame"}) {
      connect();
      control({"garbage", port, kind});
      ChildProcess drop;  // the rest of half a frame never comes
      if (kind == std::string("half-frame")) {
        drop.start({EMULATOR, "ctl", "--device", device_, "drop"});
      }
      if (std::string(port) == "main") {
        EXPECT_NE(call(), SVCMGR_ERROR_NONE) << kind;
      }
      ASSERT_TRUE(run_until([this] { return heard_something(); })) << port << " " << kind;
      EXPECT_EQ(take_connection_events(), kLost) << port << " " << kind;
      control({"restart"});
      ASSERT_TRUE(run_until([this] { return heard_something(); })) << port << " " << kind;
      EXPECT_EQ(take_connection_events(), kBack) << port << " " << kind;
      korvane_svcmgr_disconnect();
    }
  }
}

}  // namespace
