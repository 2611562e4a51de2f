// The C++ client beside a service manager in another process.
#include <gmock/gmock.h>

#include <korvane_host.hpp>
#include <korvane_svcmgr_client.hpp>

#include "service_fixture.h"

/** Defined in the guide. */
korvane::svcmgr::Request update_to_newest(korvane::svcmgr::Client &client, const std::string &id);

namespace {

using namespace korvane::svcmgr;
using namespace std::chrono_literals;
using testing::ElementsAre;

class ClientServiceTest : public ServiceTest {
 protected:
  ClientServiceTest() {
    client.connect();
    EXPECT_TRUE(run_until([this] { return client.is_connected(); }));
  }

  Request update(const std::vector<std::string> &ids) {
    ModelList models;
    for (const std::string &id : ids) {
      ModelInfo model;
      model.set_id(id);
      models.add(model);
    }
    return client.request_to_update(
        models, [this](const Progress &report) { reports.push_back(report.state()); },
        [this](std::error_code error) { ends.push_back(error); });
  }
  /** Sends a request for models that stays open. */
  Request request_unanswered(std::chrono::milliseconds limit = Client::kListLimit) {
    control({"silent", "GetUsableModelList"});
    Request request = client.request_usable_model_list(
        [this](std::error_code error, const ModelList &) { ends.push_back(error); }, limit);
    settle();
    return request;
  }
  template <typename Error>
  void expect_end(Error error) {
    EXPECT_TRUE(run_until([this] { return !ends.empty(); }));
    EXPECT_THAT(ends, ElementsAre(error));
  }

  std::vector<std::error_code> ends;
  std::vector<int> reports;
  Client client{korvane::host::call_after};
};

TEST_F(ClientServiceTest, AnUpdateEndsWithItsLastReport) {
  const std::vector<std::string> updates[] = {
      {"vision.detect"}, {"vision.detect", "vision.segment", "speech.dictate"}, {}};
  for (const auto &ids : updates) {
    ends.clear();
    reports.clear();
    const Request request = update(ids);
    expect_end(SVCMGR_ERROR_NONE);
    EXPECT_EQ(reports.back(), SVCMGR_AI_STATE_COMPLETED);
  }
}

TEST_F(ClientServiceTest, TheUpdateOfTheGuideInstallsTheNewestVersion) {
  const Request request = update_to_newest(client, "vision.detect");
  EXPECT_TRUE(run_until([&] { return !request.is_open(); }));
  EXPECT_THAT(run_program({SVCMGRCTL, "models", "list"}).output, testing::HasSubstr("2.0.0"));
}

TEST_F(ClientServiceTest, ALookAfterEachStepFindsTheShortestLoss) {
  const Request request = request_unanswered();
  control({"announce", "Update"});
  start_emulator();  // loss and launch are due before the next step
  EXPECT_TRUE(run_until([this] {
    client.look();
    return !ends.empty() && client.is_connected();
  }));
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
}

TEST_F(ClientServiceTest, ASilentServiceManagerEndsNoWaitBeforeItsLimit) {
  const auto start = std::chrono::steady_clock::now();
  const Request request = request_unanswered(300ms);
  expect_end(std::errc::timed_out);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(ClientServiceTest, AServiceManagerMayStartAfterTheClient) {
  client.disconnect();
  emulator_.end();
  EXPECT_EQ(client.connect(), SVCMGR_ERROR_CONNECTION_FAILED);
  const Request request = update({"vision.detect"});
  start_emulator();
  expect_end(SVCMGR_ERROR_NONE);
}

}  // namespace
