// The C++ client beside a service manager in another process.
#include <gmock/gmock.h>

#include <algorithm>
#include <korvane_host.hpp>
#include <korvane_svcmgr_client.hpp>
#include <optional>
#include <random>

#include "service_fixture.h"

/** Defined in the guide. */
korvane::svcmgr::Request update_to_newest(korvane::svcmgr::Client &client, const std::string &id);

namespace {

using namespace korvane::svcmgr;
using namespace std::chrono_literals;
using testing::ElementsAre;

class ClientServiceTest : public ServiceTest {
 protected:
  void SetUp() override { make_client(); }
  void TearDown() override { client.reset(); }

  void make_client() {
    client.emplace(korvane::host::call_after);
    client->on_connection([this](auto state) { states.push_back(state); });
    client->connect();
    ASSERT_TRUE(run_until([this] { return client->is_connected(); }));
  }
  void await_ends(std::size_t count) {
    ASSERT_TRUE(run_until([&] { return ends.size() >= count; })) << ends.size() << " of " << count;
  }

  Client::ModelsHandler models_handler() {
    return [this](std::error_code error, const ModelList &) { ends.push_back(error); };
  }
  Client::EndHandler end_handler() {
    return [this](std::error_code error) { ends.push_back(error); };
  }
  Client::ProgressHandler progress_handler() {
    return [this](const Progress &report) { reports.push_back(report.state()); };
  }
  static ModelList list_of(const std::vector<std::string> &ids) {
    ModelList models;
    for (const std::string &id : ids) {
      ModelInfo model;
      model.set_id(id);
      models.add(model);
    }
    return models;
  }
  Request update(const std::vector<std::string> &ids,
                 std::chrono::milliseconds limit = Client::kSilenceLimit) {
    return client->request_to_update(list_of(ids), progress_handler(), end_handler(), limit);
  }
  /** Sends a request for models that stays open. */
  Request request_unanswered(std::chrono::milliseconds limit = Client::kListLimit) {
    control({"silent", "GetUsableModelList"});
    Request request = client->request_usable_model_list(models_handler(), limit);
    settle();
    return request;
  }

  std::vector<korvane_svcmgr_connection_state_e> states;
  std::vector<std::error_code> ends;
  std::vector<int> reports;
  std::optional<Client> client;
};

TEST_F(ClientServiceTest, AnUpdateEndsWithItsLastReport) {
  for (const std::vector<std::string> &ids : {std::vector<std::string>{"vision.detect"},
                                              {"vision.detect", "vision.segment", "speech.dictate"},
                                              {}}) {
    ends.clear();
    reports.clear();
    const Request request = update(ids);
    await_ends(1);
    EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE)) << ids.size() << " models";
    EXPECT_EQ(std::count(reports.begin(), reports.end(), SVCMGR_AI_STATE_COMPLETED), 1);
    EXPECT_EQ(reports.back(), SVCMGR_AI_STATE_COMPLETED);
  }
}

TEST_F(ClientServiceTest, TheUpdateOfTheGuideInstallsTheNewestVersion) {
  const Request request = update_to_newest(*client, "vision.detect");
  EXPECT_TRUE(run_until([&] { return !request.is_open(); }));
  EXPECT_THAT(run_program({SVCMGRCTL, "models", "list"}).output, testing::HasSubstr("2.0.0"));
}

TEST_F(ClientServiceTest, AnUpdateOfAnUnknownModelFails) {
  const Request request = update({"vision.detect", "unknown"});
  await_ends(1);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_INVALID_OPERATION));
  EXPECT_EQ(reports.back(), SVCMGR_AI_STATE_FAILED);
}

TEST_F(ClientServiceTest, AnAnnouncedUpdateEndsOpenRequestsAndIsReported) {
  states.clear();
  const Request request = request_unanswered();
  control({"announce", "Update"});
  emulator_.end();
  await_ends(1);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
  start_emulator();
  ASSERT_TRUE(run_until([this] { return client->is_connected(); }));
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_DISCONNECTED, SVCMGR_CONNECTION_CONNECTED));
}

TEST_F(ClientServiceTest, ALookAfterEachStepFindsTheShortestLoss) {
  const Request request = request_unanswered();
  control({"announce", "Update"});
  start_emulator();  // loss and launch are due before the next step
  ASSERT_TRUE(run_until([this] {
    client->look();
    return !ends.empty() && client->is_connected();
  }));
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
}

TEST_F(ClientServiceTest, ARestartEndsOpenRequests) {
  const Request request = request_unanswered();
  control({"restart"});
  await_ends(1);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
  EXPECT_TRUE(run_until([this] { return client->is_connected(); }));
}

TEST_F(ClientServiceTest, ASilentServiceManagerEndsNoWaitBeforeItsLimit) {
  const auto start = std::chrono::steady_clock::now();
  const Request request = request_unanswered(300ms);
  await_ends(1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientServiceTest, AServiceManagerMayStartAfterTheClient) {
  client->disconnect();
  emulator_.end();
  EXPECT_EQ(client->connect(), SVCMGR_ERROR_CONNECTION_FAILED);
  const Request request = update({"vision.detect"});
  start_emulator();
  await_ends(1);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE));
}

TEST_F(ClientServiceTest, ReportsAfterTheLimitAreDropped) {
  client->disconnect();
  start_emulator({"--tick", "500"});
  client->connect();
  const Request request = update({"vision.detect"}, 1ms);
  await_ends(1);
  const std::size_t before = reports.size();
  settle();
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
  EXPECT_EQ(reports.size(), before);
}

TEST_F(ClientServiceTest, AnyHandlerMayDestroyTheClient) {
  const auto destroy = [this](auto &&...) { client.reset(); };
  const std::function<void()> events[] = {
      [&] {
        client->on_connection(destroy);
        control({"restart"});
      },
      [&] { client->request_usable_model_list(destroy).detach(); },
      [&] { client->request_to_update(list_of({}), destroy, end_handler()).detach(); },
      [&] { client->request_to_update(list_of({}), nullptr, destroy).detach(); },
      [&] {
        client->on_update_status(destroy);
        request_update();
      },
      [&] {
        client->on_model_status(destroy);
        update({}).detach();
      }};
  for (const auto &happens : events) {
    client.reset();
    make_client();
    happens();
    EXPECT_TRUE(run_until([this] { return !client; }));
    settle();
  }
  EXPECT_TRUE(ends.empty());
}

TEST_F(ClientServiceTest, ThousandRequestsMayBeCancelledAtAnyMoment) {
  std::mt19937 random(1);
  std::vector<Request> requests(1000);
  std::vector<int> calls(requests.size()), expected(requests.size(), 1);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    requests[i] = client->request_usable_model_list(
        [&calls, i](std::error_code, const ModelList &) { ++calls[i]; });
    for (auto steps = random() % 4; steps > 0; --steps) korvane_host_main_loop_step(0);
    const std::size_t chosen = random() % (i + 1);
    if (requests[chosen].is_open()) expected[chosen] = 0;
    requests[chosen].cancel();
  }
  settle();
  EXPECT_TRUE(run_until([&] { return calls == expected; }));
}

}  // namespace
