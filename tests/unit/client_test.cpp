// The C++ client's header first: it must stand by itself.
#include "korvane_svcmgr_client.hpp"
#include "library_test.h"

namespace {

using korvane::svcmgr::Client;
using korvane::svcmgr::Request;
using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;

constexpr int kSuccess = 0, kNoSpace = 5;  // results of the service manager
enum Delegate { kModels = 1, kVersions = 3, kUpdate = 4, kUninstall = 5 };

/** A client whose handlers record, and a main loop whose clock is the test's. */
class ClientTest : public LibraryTest {
 protected:
  ClientTest() { make_client(); }
  void TearDown() override {
    client.reset();
    korvane::svcmgr::detail::Session::process().is_rejected = false;
    LibraryTest::TearDown();
  }

  void call_after(Milliseconds delay, std::function<void()> task) {
    if (is_out_of_memory) throw std::bad_alloc();
    tasks.emplace(now + delay, std::move(task));
  }
  /** Runs the tasks that are due within a time. */
  void run_for(Milliseconds time) {
    const Milliseconds end = now + time;
    while (!tasks.empty() && tasks.begin()->first <= end) {
      now = tasks.begin()->first;
      ++steps;
      tasks.extract(tasks.begin()).mapped()();
    }
    now = end;
  }

  void make_client() {
    client.emplace([this](Milliseconds delay, std::function<void()> task) {
      call_after(delay, std::move(task));
    });
    client->on_connection([this](auto state) {
      states.push_back(state);
      react();
    });
  }
  void connect() {
    client->connect();
    platform.report_connected();
    states.clear();
  }
  /** The service manager announces its update and ends; then it comes back. The library is silent.
   */
  static void lose_silently() {
    platform.emit(".agent_status", {{"Update", "1"}});
    platform.report_disconnected();
  }
  static void reconnect_silently() {
    platform.emit(".agent_status", {{"Launch", "1"}});
    platform.report_connected();
  }

  Client::ModelsHandler models_handler() {
    return [this](std::error_code error, const ModelList &) { end_handler()(error); };
  }
  Client::EndHandler end_handler() {
    return [this](std::error_code error) {
      ends.push_back(error);
      react();
    };
  }
  Client::ProgressHandler progress_handler() {
    return [this](const Progress &report) {
      percentages.push_back(report.percentage());
      ends_at_last_report = ends.size();
      react();
    };
  }
  Request request_models(Milliseconds limit = Client::kListLimit) {
    return client->request_usable_model_list(models_handler(), limit);
  }
  Request request_update(Milliseconds limit = Client::kSilenceLimit) {
    return client->request_to_update(handles.models, progress_handler(), end_handler(), limit);
  }
  /** A request that was sent. */
  Request sent(Request request) {
    run_for(0ms);
    return request;
  }

  void answer_models(int result = kSuccess) { answer_delegate(kModels, {result, Count{0}, 0}); }
  void report(int state, int percentage = 0, int result = kSuccess) {
    answer_delegate(kUpdate, {result, state, 0, 1, percentage});
  }
  /** What the test wants done in the next handler. */
  void react() {
    const auto what = std::exchange(in_handler, nullptr);
    if (what) what();
  }

  std::multimap<Milliseconds, std::function<void()>> tasks;
  Milliseconds now{};
  int steps = 0;
  bool is_out_of_memory = false;

  Handles handles;
  std::vector<korvane_svcmgr_connection_state_e> states;
  std::vector<std::error_code> ends;
  std::vector<int> percentages;
  std::size_t ends_at_last_report = 0;
  std::function<void()> in_handler;
  std::optional<Client> client;
};

// ---- How requests end ----

TEST_F(ClientTest, ARequestEndsWithItsAnswer) {
  connect();
  int size = 0;
  const Request request = sent(client->request_usable_model_list(
      [&](std::error_code error, const ModelList &models) { size = error ? -1 : models.size(); }));
  answer_delegate(kModels, {kSuccess, Count{2}, "a", "1", "", "", "b", "1", "", "", 2});
  EXPECT_EQ(size, 2);
}

TEST_F(ClientTest, ARequestEndsWithTheCodeOfTheServiceManager) {
  connect();
  const Request request = sent(request_models());
  answer_models(kNoSpace);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NO_SPACE));
}

TEST_F(ClientTest, ANullListWithSuccessIsLackOfMemory) {
  connect();
  const Request request = sent(request_models());
  platform.uninstall_service_manager();  // no list can be made
  answer_models();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_OUT_OF_MEMORY));
}

TEST_F(ClientTest, ARequestNeverEndsInsideTheCallThatStartsIt) {
  const Request request = request_models();
  EXPECT_THAT(ends, IsEmpty());
  run_for(0ms);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED)) << "connect() was never called";
}

TEST_F(ClientTest, ErrorsInStartingGoToTheHandler) {
  connect();
  platform.app_version.reset();
  const Request request = request_models();
  const Request without_models =
      client->request_to_update(ModelList(nullptr), progress_handler(), end_handler());
  EXPECT_THAT(ends, IsEmpty());
  run_for(0ms);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_INVALID_OPERATION, SVCMGR_ERROR_INVALID_PARAMETER));
}

TEST_F(ClientTest, ARequestWaitsForTheConnection) {
  client->connect();
  const Request request = sent(request_models());
  EXPECT_THAT(platform.sent, IsEmpty());
  platform.report_connected();
  answer_models();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE));
}

TEST_F(ClientTest, ARequestEndsAtItsLimitAndNotBefore) {
  connect();
  run_for(950ms);
  const Request request = request_models(1s);
  run_for(999ms);
  EXPECT_THAT(ends, IsEmpty());
  run_for(201ms);
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientTest, TheWaitForTheConnectionCounts) {
  client->connect();
  const Request request = request_models(1s);
  run_for(1200ms);
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientTest, ARequestWithoutLimitStaysOpen) {
  connect();
  const Request request = sent(request_models(Client::kNoLimit));
  run_for(10min);
  EXPECT_TRUE(request.is_open());
}

TEST_F(ClientTest, AReportStartsTheLimitAnew) {
  connect();
  const Request request = sent(request_update(1s));
  run_for(950ms);
  report(SVCMGR_AI_STATE_START);
  run_for(999ms);
  EXPECT_THAT(ends, IsEmpty());
  run_for(201ms);
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientTest, EveryReportComesBeforeTheEnd) {
  connect();
  const Request request = sent(request_update());
  report(SVCMGR_AI_STATE_START, 50);
  report(SVCMGR_AI_STATE_COMPLETED, 100);
  EXPECT_THAT(percentages, ElementsAre(50, 100));
  EXPECT_EQ(ends_at_last_report, 0U);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE));
}

TEST_F(ClientTest, AFailedJobIsAnInvalidOperation) {
  connect();
  const Request request = sent(request_update());
  report(SVCMGR_AI_STATE_FAILED);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_INVALID_OPERATION));
}

TEST_F(ClientTest, AFailingResultEndsAnUpdateAfterItsReport) {
  connect();
  const Request request = sent(request_update());
  report(SVCMGR_AI_STATE_START, 25, kNoSpace);
  EXPECT_THAT(percentages, ElementsAre(25));
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NO_SPACE));
}

TEST_F(ClientTest, ALateAnswerIsDropped) {
  connect();
  const Request request = sent(request_models(1s));
  run_for(2s);
  answer_models();
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientTest, ALossEndsWhatWasSentOnly) {
  connect();
  const Request lost = sent(request_models());
  const Request waiting = request_update();
  platform.report_disconnected();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
  EXPECT_TRUE(waiting.is_open());
}

TEST_F(ClientTest, DisconnectingEndsAllRequestsFromTheMainLoop) {
  connect();
  const Request request = sent(request_models());
  const Request waiting = request_update();
  client->disconnect();
  client->connect();
  EXPECT_THAT(ends, IsEmpty());
  run_for(0ms);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED, SVCMGR_ERROR_NOT_CONNECTED));
}

TEST_F(ClientTest, EachRequestSendsItsArguments) {
  const std::string agent = SVCMGR_VENDOR_PREFIX ".agent";
  platform.packages.push_back({agent, "4.5", {{"ai-agent-category", "vision"}}});
  connect();
  client->request_usable_model_list_with_category("vision", models_handler()).detach();
  client->request_usable_model_list_with_description(models_handler()).detach();
  client->request_model_version_list(handles.info, models_handler()).detach();
  client->request_to_uninstall(handles.models, progress_handler(), end_handler()).detach();
  handles.info.set_id("another");
  run_for(0ms);
  ASSERT_EQ(platform.sent.size(), 4U);
  EXPECT_THAT(platform.sent[0], Contains(ParcelValue(agent)));
  EXPECT_THAT(platform.sent[1], Contains(ParcelValue("org.example.app")));
  EXPECT_THAT(platform.sent[2], Contains(ParcelValue("m1")));
  EXPECT_THAT(platform.sent[3], Contains(ParcelValue("m1")));
}

// ---- Requests as objects ----

TEST_F(ClientTest, ADestroyedRequestIsCancelled) {
  connect();
  { const Request request = sent(request_models()); }
  answer_models();
  run_for(Client::kListLimit * 2);
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, AssignmentCancelsTheEarlierRequest) {
  connect();
  Request request = sent(request_models());
  request = sent(request_update());
  EXPECT_TRUE(request.is_open());
  answer_models();
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, ADetachedRequestEndsWithoutItsObject) {
  connect();
  sent(request_models()).detach();
  answer_models();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE));
}

TEST_F(ClientTest, ARequestIsNotOpenInItsLastHandler) {
  connect();
  const Request request = sent(request_models());
  bool is_open = true;
  in_handler = [&] { is_open = request.is_open(); };
  answer_models();
  EXPECT_FALSE(is_open);
}

TEST_F(ClientTest, ARequestMayOutliveTheClient) {
  connect();
  Request request = sent(request_models());
  client.reset();
  EXPECT_FALSE(request.is_open());
  request.cancel();
}

// ---- What handlers may do ----

TEST_F(ClientTest, AProgressHandlerMayDestroyItsRequest) {
  connect();
  Request request = sent(request_update());
  in_handler = [&] { request = Request(); };
  report(SVCMGR_AI_STATE_COMPLETED);
  EXPECT_EQ(percentages.size(), 1U);
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, AHandlerMayOwnItsRequest) {
  connect();
  const auto owner = std::make_shared<Request>();
  *owner = sent(client->request_usable_model_list(
      [this, owner](std::error_code error, const ModelList &) { ends.push_back(error); }));
  owner->cancel();
  EXPECT_EQ(owner.use_count(), 1);
}

TEST_F(ClientTest, AHandlerMayCancelARequestThatEndsWithIt) {
  connect();
  Request other;
  const Request request = sent(client->request_usable_model_list(
      [&](std::error_code, const ModelList &) { other.cancel(); }));
  other = sent(request_update());
  platform.report_disconnected();
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, AnyHandlerMayDestroyTheClient) {
  const std::function<void()> events[] = {
      [] { platform.report_disconnected(); },
      [this] { answer_models(); },
      [this] { report(SVCMGR_AI_STATE_COMPLETED); },
      [] {
        platform.emit(".update_status", {{"Start", Texts{"agent"}}});
      },
      [] {
        platform.emit(".model_status", {{"START", "1"}});
      },
      [this] {
        lose_silently();
        client->look();
      }};
  for (const auto &happens : events) {
    client.reset();
    make_client();
    client->on_update_status([this](auto) { react(); });
    client->on_model_status([this](auto) { react(); });
    connect();
    const Request requests[] = {sent(request_models()), sent(request_update())};
    ends.clear();
    in_handler = [this] { client.reset(); };
    happens();
    EXPECT_FALSE(client);
    run_for(1min);
    EXPECT_LE(ends.size(), 1U) << "and none is called afterwards";
  }
}

TEST_F(ClientTest, AHandlerMayReplaceTheClient) {
  connect();
  in_handler = [this] {
    client.reset();
    make_client();
    connect();
  };
  platform.report_disconnected();
  EXPECT_TRUE(client->is_connected());
  EXPECT_EQ(platform.proxies.size(), 1U);
}

TEST_F(ClientTest, NoHandlerIsCalledOnceTheClientIsDestroyed) {
  int statuses = 0;
  client->on_update_status([&](auto) { ++statuses; });
  connect();
  lose_silently();
  in_handler = [this] { client.reset(); };  // called first: the event shows the loss
  platform.emit(".update_status", {{"Start", Texts{"agent"}}});
  EXPECT_EQ(statuses, 0);
}

TEST_F(ClientTest, AnExceptionOfAHandlerEndsTheProgram) {
  connect();
  const Request request = sent(request_models());
  in_handler = [] { throw std::runtime_error("of the application"); };
  EXPECT_DEATH(answer_models(), "of the application");
}

// ---- The connection ----

TEST_F(ClientTest, AConnectionThatCannotBeStartedIsTriedAgainEverySecond) {
  platform.failures["rpc_port_proxy_connect"] = -5;
  EXPECT_EQ(client->connect(), SVCMGR_ERROR_CONNECTION_FAILED);
  run_for(3s);
  EXPECT_EQ(platform.count("rpc_port_proxy_connect"), 4);
  platform.repair();
  run_for(1s);
  platform.report_connected();
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_CONNECTED));
}

TEST_F(ClientTest, AReconnectionThatCannotBeStartedIsTriedAgain) {
  connect();
  platform.failures["rpc_port_proxy_connect"] = -5;
  platform.report_disconnected();
  platform.emit(".agent_status", {{"Launch", "1"}});
  platform.repair();
  run_for(1s);
  platform.report_connected();
  EXPECT_TRUE(client->is_connected());
}

TEST_F(ClientTest, ASilentLossIsFoundWhileARequestIsOpen) {
  connect();
  const Request request = sent(request_models());
  lose_silently();
  run_for(100ms);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
  reconnect_silently();
  run_for(100ms);
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_DISCONNECTED, SVCMGR_CONNECTION_CONNECTED));
}

TEST_F(ClientTest, ASilentLossIsFoundWithinASecondOtherwise) {
  connect();
  run_for(1s);
  lose_silently();
  run_for(1s);
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_DISCONNECTED));
}

TEST_F(ClientTest, ALossBetweenTwoStepsEndsRequestsByTheirLimit) {
  connect();
  const Request request = sent(request_models(1s));
  lose_silently();
  reconnect_silently();
  run_for(1200ms);
  EXPECT_THAT(ends, ElementsAre(std::errc::timed_out));
}

TEST_F(ClientTest, ALookAfterEachEventFindsEveryLoss) {
  connect();
  const Request request = sent(request_models());
  lose_silently();
  client->look();
  reconnect_silently();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
}

TEST_F(ClientTest, AReportedConnectionEndsWhatWasSentBeforeIt) {
  connect();
  const Request request = sent(request_models());
  platform.report_connected();
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NOT_CONNECTED));
}

TEST_F(ClientTest, AServiceManagerThatIsNotInstalledForTheMomentIsNoLoss) {
  connect();
  const Request request = sent(request_models());
  platform.uninstall_service_manager();
  run_for(5s);
  platform.repair();
  answer_models();
  EXPECT_THAT(states, IsEmpty());
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_NONE));
}

TEST_F(ClientTest, ARejectionEndsRequestsAndIsReportedOnceByEachClient) {
  client->connect();
  const Request request = request_models();
  platform.report_rejected();
  run_for(1min);
  EXPECT_THAT(ends, ElementsAre(SVCMGR_ERROR_PERMISSION_DENIED));
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_REJECTED));
  client.reset();
  make_client();
  client->connect();
  run_for(0ms);
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_REJECTED, SVCMGR_CONNECTION_REJECTED));
}

TEST_F(ClientTest, AConnectionThatIsMadeAfterDisconnectingIsEnded) {
  client->connect();
  client->disconnect();
  platform.report_connected();
  EXPECT_THAT(platform.proxies, IsEmpty());
  EXPECT_THAT(states, IsEmpty());
}

TEST_F(ClientTest, AConnectionThatIsMadeAfterTheClientIsEnded) {
  client->connect();
  client.reset();
  platform.report_connected();
  EXPECT_THAT(platform.proxies, IsEmpty());
}

TEST_F(ClientTest, ASilentReconnectionAfterDisconnectingIsEnded) {
  connect();
  lose_silently();
  client->disconnect();
  reconnect_silently();
  run_for(1s);
  EXPECT_THAT(platform.proxies, IsEmpty());
}

TEST_F(ClientTest, AClientTakesOverTheConnectionThatAnEarlierOneStarted) {
  client->connect();
  client.reset();
  make_client();
  client->connect();
  platform.report_connected();
  EXPECT_THAT(states, ElementsAre(SVCMGR_CONNECTION_CONNECTED));
}

// ---- Statuses, the main loop ----

TEST_F(ClientTest, StatusesReachTheirHandlersUntilTheseAreTakenBack) {
  int statuses = 0;
  client->on_update_status(
      [&](auto status) { statuses += status == SVCMGR_UPDATE_STATUS_STARTED; });
  client->on_model_status([&](auto state) { statuses += state == SVCMGR_AI_STATE_START; });
  platform.emit(".update_status", {{"Start", Texts{"agent"}}});
  platform.emit(".model_status", {{"START", "1"}});
  EXPECT_EQ(statuses, 2);
  client->on_update_status(nullptr);
  client->on_model_status(nullptr);
  EXPECT_THAT(platform.subscriptions, IsEmpty());
}

TEST_F(ClientTest, ADestroyedClientWatchesNoStatus) {
  client->on_update_status([](auto) {});
  client->on_model_status([](auto) {});
  client.reset();
  EXPECT_THAT(platform.subscriptions, IsEmpty());
}

TEST_F(ClientTest, AProcessHasOneClient) {
  EXPECT_THROW(Client([](Milliseconds, const std::function<void()> &) {}), std::logic_error);
}

TEST_F(ClientTest, AnIdleClientRunsOnceASecond) {
  connect();
  run_for(1s);
  steps = 0;
  run_for(10s);
  EXPECT_EQ(steps, 10);
}

TEST_F(ClientTest, OneStepServesAllRequests) {
  connect();
  std::vector<Request> requests(100);
  requests[0] = request_models();
  run_for(1s);
  for (Request &request : requests) request = request_models();
  steps = 0;
  run_for(1s);
  EXPECT_EQ(steps, 11) << "one at once, ten that count the time";
}

TEST_F(ClientTest, TasksDoNothingAfterTheClient) {
  connect();
  Request request = request_models();
  client.reset();
  platform.forget();
  run_for(1min);
  EXPECT_THAT(platform.calls, IsEmpty());
}

TEST_F(ClientTest, LackOfMemoryForATaskLeavesNothingBehind) {
  connect();
  run_for(1s);
  is_out_of_memory = true;
  EXPECT_THROW(request_models().detach(), std::bad_alloc);
  is_out_of_memory = false;
  run_for(Client::kListLimit * 2);
  EXPECT_THAT(platform.sent, IsEmpty());
  client.reset();
  is_out_of_memory = true;
  EXPECT_THROW(make_client(), std::bad_alloc);
  is_out_of_memory = false;
  make_client();
}

}  // namespace
