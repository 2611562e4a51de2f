// The C++ client's header first: it must stand by itself.
#include "korvane_svcmgr_client.hpp"
#include "library_test.h"

namespace {

using korvane::svcmgr::Client;
using korvane::svcmgr::Request;
using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;

constexpr int kSuccess = 0, kNoSpace = 5;  // results of the service manager

/** A client whose handlers record, and a main loop whose clock is the test's. */
class ClientTest : public LibraryTest {
 protected:
  ClientTest() { make_client(); }
  void TearDown() override {
    client.reset();
    korvane::svcmgr::detail::Session::process().is_rejected = false;
    LibraryTest::TearDown();
  }

  void make_client() {
    client.emplace([this](Milliseconds delay, std::function<void()> task) {
      if (!can_schedule) throw std::bad_alloc();
      tasks.emplace(now + delay, std::move(task));
    });
    client->on_connection([this](auto state) {
      connection_states.push_back(state);
      react();
    });
  }
  /** Runs the tasks that are due within a time. */
  void run_for(Milliseconds time) {
    const Milliseconds end = now + time;
    while (!tasks.empty() && tasks.begin()->first <= end) {
      now = tasks.begin()->first;
      tasks.extract(tasks.begin()).mapped()();
    }
    now = end;
  }
  void connect() {
    client->connect();
    platform.report_connected();
    connection_states.clear();
  }
  /** Loses the connection to an update of the service manager. The library does not report this. */
  static void lose_silently() {
    announce_update();
    lose_connection();
  }

  void request_models(Milliseconds limit = Client::kListLimit) {
    const auto on_end = [this](std::error_code error, const ModelList &list) {
      models = describe(list);
      end(error);
    };
    request = client->request_usable_model_list(on_end, limit);
  }
  void request_update(Milliseconds limit = Client::kSilenceLimit) {
    const auto on_report = [this](const Progress &report) {
      percentages.push_back(report.percentage());
      react();
    };
    request = client->request_to_update(
        handles.models, on_report, [this](std::error_code error) { end(error); }, limit);
  }
  void end(std::error_code error) {
    ends.push_back(error);
    react();
  }
  // Connect, and send a request.
  void open_models_request() {
    connect();
    request_models();
    run_for(0ms);
  }
  void open_update() {
    connect();
    request_update(1s);
    run_for(0ms);
  }
  /** Expects that one request has ended. */
  template <typename Error>
  void expect_end(Error error) const {
    EXPECT_THAT(ends, ElementsAre(error));
  }

  void answer_models(int result = kSuccess) { answer_delegate(kModels, {result, Count{0}, 0}); }
  void report(int state, int percentage = 0, int result = kSuccess) {
    answer_delegate(kUpdate, {result, state, 0, 1, percentage});
  }

  std::multimap<Milliseconds, std::function<void()>> tasks;
  Milliseconds now{};
  bool can_schedule = true;

  Handles handles;
  std::vector<std::error_code> ends;
  std::string models;  ///< of the last answer
  std::vector<int> percentages;
  std::optional<Client> client;
  Request request;
};

// ---- How requests end ----

TEST_F(ClientTest, ARequestEndsWithItsAnswer) {
  open_models_request();
  answer_delegate(kModels, {kSuccess, Count{1}, "a", "1", "t", "", 1});
  expect_end(SVCMGR_ERROR_NONE);
  EXPECT_EQ(models, "[a|1|t|]");
}

TEST_F(ClientTest, ARequestEndsWithTheCodeOfTheServiceManager) {
  open_models_request();
  answer_models(kNoSpace);
  expect_end(SVCMGR_ERROR_NO_SPACE);
}

TEST_F(ClientTest, ARequestNeverEndsInsideTheCallThatStartsIt) {
  request_models();
  EXPECT_THAT(ends, IsEmpty());
  run_for(0ms);
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);  // connect() was never called
}

TEST_F(ClientTest, ErrorsInStartingGoToTheHandler) {
  connect();
  handles.models = ModelList(nullptr);
  request_update();
  run_for(0ms);
  expect_end(SVCMGR_ERROR_INVALID_PARAMETER);
}

TEST_F(ClientTest, ARequestWaitsForTheConnection) {
  client->connect();
  request_models();
  run_for(0ms);
  EXPECT_THAT(platform.sent, IsEmpty());
  platform.report_connected();
  answer_models();
  expect_end(SVCMGR_ERROR_NONE);
}

TEST_F(ClientTest, ARequestEndsAtItsLimitAndNotBefore) {
  connect();
  run_for(950ms);
  request_models(1s);
  run_for(999ms);
  EXPECT_THAT(ends, IsEmpty());
  run_for(201ms);
  expect_end(std::errc::timed_out);
}

TEST_F(ClientTest, TheWaitForTheConnectionCounts) {
  client->connect();
  request_models(1s);
  run_for(1200ms);
  expect_end(std::errc::timed_out);
}

TEST_F(ClientTest, ARequestWithoutLimitStaysOpen) {
  connect();
  request_models(Client::kNoLimit);
  run_for(10min);
  EXPECT_TRUE(request.is_open());
}

TEST_F(ClientTest, AReportStartsTheLimitAgain) {
  open_update();
  run_for(950ms);
  report(SVCMGR_AI_STATE_START);
  run_for(999ms);
  EXPECT_THAT(ends, IsEmpty());
  run_for(201ms);
  expect_end(std::errc::timed_out);
}

TEST_F(ClientTest, AnUpdateReportsItsProgressAndEnds) {
  open_update();
  report(SVCMGR_AI_STATE_START, 50);
  report(SVCMGR_AI_STATE_COMPLETED, 100);
  EXPECT_THAT(percentages, ElementsAre(50, 100));
  expect_end(SVCMGR_ERROR_NONE);
}

TEST_F(ClientTest, AFailedUpdateIsAnInvalidOperation) {
  open_update();
  report(SVCMGR_AI_STATE_FAILED);
  expect_end(SVCMGR_ERROR_INVALID_OPERATION);
}

TEST_F(ClientTest, AFailingResultEndsAnUpdateAfterItsReport) {
  open_update();
  report(SVCMGR_AI_STATE_START, 25, kNoSpace);
  EXPECT_THAT(percentages, ElementsAre(25));
  expect_end(SVCMGR_ERROR_NO_SPACE);
}

TEST_F(ClientTest, ALossEndsOnlyRequestsThatWereSent) {
  open_models_request();
  const Request lost = std::move(request);
  request_update();
  lose_connection();
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
  EXPECT_TRUE(request.is_open());
}

TEST_F(ClientTest, DisconnectingEndsRequestsFromTheMainLoop) {
  open_models_request();
  client->disconnect();
  client->connect();
  EXPECT_THAT(ends, IsEmpty());
  run_for(0ms);
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
  EXPECT_THAT(connection_states, IsEmpty());
}

TEST_F(ClientTest, AnAnswerWithoutAListIsLackOfMemory) {
  open_models_request();
  platform.uninstall_service_manager();
  answer_models();
  expect_end(SVCMGR_ERROR_OUT_OF_MEMORY);
}

TEST_F(ClientTest, EachRequestSendsItsArguments) {
  const std::string agent = SVCMGR_VENDOR_PREFIX ".agent";
  platform.install(agent, "4.5").metadata = {{"ai-agent-category", "vision"}};
  connect();
  client->request_usable_model_list_with_category("vision", nullptr).detach();
  client->request_usable_model_list_with_description(nullptr).detach();
  client->request_model_version_list(handles.info, nullptr).detach();
  client->request_to_uninstall(handles.models, nullptr, nullptr).detach();
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
  open_models_request();
  { const Request destroyed = std::move(request); }
  answer_models();
  run_for(Client::kListLimit * 2);
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, AssignmentCancelsTheEarlierRequest) {
  open_models_request();
  request_update();
  EXPECT_TRUE(request.is_open());
  answer_models();
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, ARequestIsNotOpenInItsLastHandler) {
  open_models_request();
  bool is_open = true;
  reaction = [&] { is_open = request.is_open(); };
  answer_models();
  EXPECT_FALSE(is_open);
}

TEST_F(ClientTest, ARequestMayOutliveTheClient) {
  open_models_request();
  client.reset();
  EXPECT_FALSE(request.is_open());
  request.cancel();
}

// ---- What handlers may do ----

TEST_F(ClientTest, AProgressHandlerMayDestroyItsRequest) {
  open_update();
  reaction = [this] { request = Request(); };
  report(SVCMGR_AI_STATE_COMPLETED);
  EXPECT_EQ(percentages.size(), 1U);
  EXPECT_THAT(ends, IsEmpty());
}

TEST_F(ClientTest, AHandlerMayCancelARequestThatEndsWithIt) {
  open_models_request();
  client->on_connection(nullptr);
  const Request first = std::move(request);
  request_update();
  run_for(0ms);
  reaction = [this] { request.cancel(); };
  lose_connection();
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
}

TEST_F(ClientTest, ARequestThatAHandlerStartsIsServedInTheNextStep) {
  request_models();
  reaction = [this] { request_models(); };
  client->look();
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
}

TEST_F(ClientTest, AHandlerThatRemovesItselfLivesUntilItReturns) {
  client->on_connection([this, state = std::make_shared<int>()](auto) {
    const std::weak_ptr<int> observed = state;
    client->on_connection(nullptr);
    EXPECT_FALSE(observed.expired());
  });
  connect();
}

TEST_F(ClientTest, AnAnswerHandlerMayDestroyTheClient) {
  open_models_request();
  reaction = [this] { client.reset(); };
  answer_models();
  EXPECT_FALSE(client);
}

TEST_F(ClientTest, AConnectionHandlerMayDestroyTheClientInsideALook) {
  connect();
  lose_silently();
  reaction = [this] {
    client.reset();
    tasks.clear();  // they keep the memory of what was destroyed
  };
  client->look();
  EXPECT_FALSE(client);
}

TEST_F(ClientTest, AHandlerMayReplaceTheClient) {
  connect();
  reaction = [this] {
    client.reset();
    make_client();
    connect();
  };
  lose_connection();
  EXPECT_TRUE(client->is_connected());
  EXPECT_EQ(platform.proxies.size(), 1U);
}

TEST_F(ClientTest, NoHandlerIsCalledOnceTheClientIsDestroyed) {
  client->on_update_status([&](auto status) { update_statuses.push_back(status); });
  connect();
  lose_silently();
  reaction = [this] { client.reset(); };  // called first: the event shows the loss
  start_update();
  EXPECT_THAT(update_statuses, IsEmpty());
}

TEST_F(ClientTest, AnExceptionOfAHandlerEndsTheProgram) {
  open_models_request();
  reaction = [] { throw std::runtime_error("of the application"); };
  EXPECT_DEATH(answer_models(), "of the application");
}

// ---- The connection ----

TEST_F(ClientTest, AConnectWhileConnectedIsNoError) {
  connect();
  EXPECT_EQ(client->connect(), SVCMGR_ERROR_NONE);
}

TEST_F(ClientTest, AConnectionThatCannotBeStartedIsTriedAgainEverySecond) {
  platform.failures["rpc_port_proxy_connect"] = -EIO;
  EXPECT_EQ(client->connect(), SVCMGR_ERROR_CONNECTION_FAILED);
  run_for(3s);
  EXPECT_EQ(platform.count("rpc_port_proxy_connect"), 4);
  platform.repair();
  run_for(1s);
  platform.report_connected();
  EXPECT_THAT(connection_states, ElementsAre(SVCMGR_CONNECTION_CONNECTED));
}

TEST_F(ClientTest, ASilentLossIsFoundWhileARequestIsOpen) {
  open_models_request();
  lose_silently();
  run_for(100ms);
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
  announce_launch();
  platform.report_connected();
  run_for(100ms);
  EXPECT_THAT(connection_states,
              ElementsAre(SVCMGR_CONNECTION_DISCONNECTED, SVCMGR_CONNECTION_CONNECTED));
}

TEST_F(ClientTest, AReportedConnectionEndsWhatWasSentBeforeIt) {
  open_models_request();
  platform.report_connected();
  expect_end(SVCMGR_ERROR_NOT_CONNECTED);
}

TEST_F(ClientTest, AServiceManagerThatIsNotInstalledForTheMomentIsNoLoss) {
  open_models_request();
  platform.uninstall_service_manager();
  run_for(5s);
  platform.repair();
  answer_models();
  EXPECT_THAT(connection_states, IsEmpty());
  expect_end(SVCMGR_ERROR_NONE);
}

TEST_F(ClientTest, ARejectionEndsRequestsAndIsReportedOnceByEachClient) {
  client->connect();
  request_models();
  platform.report_rejected();
  run_for(1min);
  expect_end(SVCMGR_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(connection_states, ElementsAre(SVCMGR_CONNECTION_REJECTED));
  client.reset();
  make_client();
  client->connect();
  run_for(0ms);
  EXPECT_THAT(connection_states,
              ElementsAre(SVCMGR_CONNECTION_REJECTED, SVCMGR_CONNECTION_REJECTED));
}

TEST_F(ClientTest, AConnectionThatIsMadeAfterDisconnectingIsEnded) {
  client->connect();
  client->disconnect();
  platform.report_connected();
  EXPECT_THAT(platform.proxies, IsEmpty());
  EXPECT_THAT(connection_states, IsEmpty());
}

TEST_F(ClientTest, AConnectionThatIsMadeAfterTheClientIsEnded) {
  client->connect();
  client.reset();
  platform.report_connected();
  EXPECT_THAT(platform.proxies, IsEmpty());
}

// ---- Statuses, the main loop ----

TEST_F(ClientTest, StatusesReachTheirHandlersUntilTheseAreRemoved) {
  client->on_update_status([&](auto status) { update_statuses.push_back(status); });
  client->on_model_status([&](auto state) { model_states.push_back(state); });
  platform.uninstall_service_manager();
  EXPECT_THROW(client->on_update_status(nullptr), std::system_error);
  platform.repair();
  start_update();
  platform.emit(".model_status", {{"START", "1"}});
  EXPECT_THAT(update_statuses, ElementsAre(SVCMGR_UPDATE_STATUS_STARTED));
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
  client->on_update_status(nullptr);
  client->on_model_status(nullptr);
  EXPECT_THAT(platform.subscriptions, IsEmpty());
}

TEST_F(ClientTest, AFunctionThatCannotScheduleItsStepChangesNothing) {
  can_schedule = false;
  EXPECT_THROW(client->connect(), std::bad_alloc);
  EXPECT_THROW(request_models(), std::bad_alloc);
  can_schedule = true;
  run_for(2s);
  EXPECT_THAT(platform.proxies, IsEmpty());
  connect();
  run_for(0ms);
  can_schedule = false;
  EXPECT_THROW(client->disconnect(), std::bad_alloc);
  can_schedule = true;
  request_models();
  run_for(0ms);
  EXPECT_THAT(ends, IsEmpty());
  EXPECT_EQ(platform.sent.size(), 1U);
}

TEST_F(ClientTest, ADestroyedClientDoesNothing) {
  client->on_update_status([](auto) {});
  client->on_model_status([](auto) {});
  open_models_request();
  client.reset();
  platform.forget();
  run_for(1min);
  EXPECT_THAT(platform.calls, IsEmpty());
  EXPECT_THAT(platform.subscriptions, IsEmpty());
}

TEST_F(ClientTest, AProcessHasOneClient) {
  EXPECT_THROW(Client([](Milliseconds, const std::function<void()> &) {}), std::logic_error);
}

TEST_F(ClientTest, AnIdleClientLooksAtItsConnectionOnceASecond) {
  connect();
  run_for(1s);
  platform.forget();
  run_for(10s);
  EXPECT_EQ(platform.log_of("is_being_updated").size(), 10U);
}

}  // namespace
