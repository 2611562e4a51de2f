#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

namespace {

constexpr auto kConnected = SVCMGR_CONNECTION_CONNECTED;
constexpr auto kLost = SVCMGR_CONNECTION_DISCONNECTED;
constexpr auto kRejected = SVCMGR_CONNECTION_REJECTED;

class ConnectionTest : public LibraryTest {
 protected:
  static void establish_connection() { platform.report_connected(); }
  static void reject_connection() { platform.report_rejected(); }
  static auto connections_started() { return platform.count("rpc_port_proxy_connect"); }
  static bool has_port() { return !platform.proxies.empty(); }
  static bool is_watching() { return !platform.subscriptions.empty(); }
  static void restart_service_manager() {
    lose_connection();
    announce_launch();
    establish_connection();
  }
  static void update_service_manager() {
    announce_update();
    restart_service_manager();
  }
  static void request_update() {
    platform.answer(0);
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_request_update());
  }
  /** Expects that a connection cannot be started, with a code and a line. */
  void expect_no_start(const char *function, int error, int code, const std::string &line) {
    platform.failures[function] = error;
    EXPECT_EQ(code, start_connecting());
    expect_logged({"E Connect: " + line});
    EXPECT_FALSE(has_port());
    platform.repair();
    EXPECT_EQ(SVCMGR_ERROR_NONE, start_connecting()) << "a later attempt is a new one";
  }
};

class ConnectedTest : public ConnectionTest {
 protected:
  ConnectedTest() { connect(); }
};

// Connecting and disconnecting.

TEST_F(ConnectionTest, InsideConnectedTheLibraryWatchesAndCanBeUsed) {
  start_connecting();
  reaction = [] {
    EXPECT_TRUE(is_connected() && is_watching());
    request_update();
  };
  establish_connection();
  EXPECT_EQ(nullptr, reaction);
}

TEST_F(ConnectionTest, InsideLostOrRejectedTheLibraryIsNotConnected) {
  for (const auto end : {lose_connection, reject_connection}) {
    connect();
    reaction = [] { EXPECT_FALSE(is_connected()); };
    end();
    EXPECT_EQ(nullptr, reaction);
    LibraryTest::TearDown();
  }
}

TEST_F(ConnectionTest, AConnectWhileConnectingReplacesTheCallback) {
  korvane_svcmgr_connect(ignore_connection, nullptr);
  EXPECT_EQ(SVCMGR_ERROR_NONE, start_connecting());
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
  EXPECT_EQ(1, connections_started());
}

TEST_F(ConnectedTest, AConnectWhileConnectedIsRefused) {
  EXPECT_EQ(SVCMGR_ERROR_ALREADY_CONNECTED, korvane_svcmgr_connect(ignore_connection, nullptr));
  expect_logged({"E korvane_svcmgr_connect: already connected\n"});
  lose_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost)) << "the callback is still the first one";
  EXPECT_EQ(0, connections_started());
}

TEST_F(ConnectedTest, AConnectAfterALossReplacesOnlyTheCallback) {
  lose_connection();
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_connect(ignore_connection, nullptr));
  EXPECT_EQ(0, connections_started());
  announce_launch();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

TEST_F(ConnectedTest, ARejectionEndsTheConnectionAndKeepsThePort) {
  reject_connection();
  EXPECT_THAT(connection_states, ElementsAre(kRejected));
  EXPECT_FALSE(is_connected());
  EXPECT_EQ(SVCMGR_ERROR_NONE, start_connecting());
  EXPECT_EQ(0, connections_started());
}

TEST_F(ConnectionTest, ADisconnectWithoutAConnectionChangesNothing) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_disconnect());
  start_connecting();
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_disconnect());
  EXPECT_TRUE(has_port());
}

TEST_F(ConnectedTest, ADisconnectIsNotReported) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_disconnect());
  EXPECT_FALSE(is_connected() || has_port() || is_watching());
  EXPECT_THAT(connection_states, IsEmpty());
}

TEST_F(ConnectedTest, AConnectAfterADisconnectMakesANewConnection) {
  korvane_svcmgr_disconnect();
  start_connecting();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
  EXPECT_EQ(1, connections_started());
}

TEST_F(ConnectionTest, ACallbackMayDisconnect) {
  start_connecting();
  reaction = [] { korvane_svcmgr_disconnect(); };
  establish_connection();
  EXPECT_FALSE(is_connected() || has_port() || is_watching());
}

TEST_F(ConnectedTest, ACallbackMayReplaceItself) {
  reaction = [] { korvane_svcmgr_connect(ignore_connection, nullptr); };
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

// A connection that cannot be started.

TEST_F(ConnectionTest, APortThatCannotBeMadeIsAFailedConnection) {
  expect_no_start("rpc_port_proxy_create", -ENOMEM, SVCMGR_ERROR_CONNECTION_FAILED,
                  "Invalid IO exception occurred!!!");
  expect_logged({"P SvcMgrAppPort: Failed to create proxy"});
}

TEST_F(ConnectionTest, ARefusedIdIsAFailedConnection) {
  expect_no_start("rpc_port_proxy_connect", -EINVAL, SVCMGR_ERROR_CONNECTION_FAILED,
                  "Invalid ID exception occurred!!!");
}

TEST_F(ConnectionTest, AnIoErrorIsAFailedConnection) {
  expect_no_start("rpc_port_proxy_connect", -EIO, SVCMGR_ERROR_CONNECTION_FAILED,
                  "Invalid IO exception occurred!!!");
}

TEST_F(ConnectionTest, ADeniedConnectionHasItsOwnCode) {
  expect_no_start("rpc_port_proxy_connect", -EACCES, SVCMGR_ERROR_PERMISSION_DENIED,
                  "Permission denied exception occurred!!!");
}

TEST_F(ConnectionTest, AFailureToConnectIsLoggedOnEachLevel) {
  platform.failures["rpc_port_proxy_connect"] = -EIO;
  start_connecting();
  EXPECT_THAT(platform.take_log(),
              ElementsAre("D korvane_svcmgr_connect: korvane_svcmgr_connect", "I Connect: Connect",
                          "P Connect: Failed to connect SvcMgrAppPort",
                          "E Connect: Invalid IO exception occurred!!!",
                          "E korvane_svcmgr_connect: connection result = [-1]"));
}

TEST_F(ConnectionTest, AnyOtherFailureToConnectIsOnlyLogged) {
  platform.failures["rpc_port_proxy_connect"] = -ENOMEM;
  EXPECT_EQ(SVCMGR_ERROR_NONE, start_connecting());
  expect_logged({"P Connect: Failed to connect SvcMgrAppPort"});
  EXPECT_TRUE(has_port());
}

// The service manager restarts.

TEST_F(ConnectedTest, ARestartIsReportedAsLossAndConnection) {
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
  EXPECT_TRUE(is_connected() && is_watching());
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(ConnectedTest, ALaunchWhileConnectedIsIgnored) {
  announce_launch();
  EXPECT_TRUE(is_connected());
  EXPECT_EQ(0, connections_started());
}

TEST_F(ConnectedTest, ALaunchAfterADisconnectIsIgnored) {
  platform.failures["event_remove_event_handler"] = -EIO;
  korvane_svcmgr_disconnect();
  announce_launch();
  EXPECT_FALSE(has_port());
}

TEST_F(ConnectedTest, AFailedReconnectionGivesUp) {
  lose_connection();
  platform.failures["rpc_port_proxy_connect"] = -EIO;
  announce_launch();
  EXPECT_FALSE(has_port() || is_watching());
}

TEST_F(ConnectedTest, ALaunchThatIsNoTextIsIgnored) {
  lose_connection();
  platform.emit(".agent_status", {{"Update", Bytes{1}}, {"Launch", Bytes{1}}});
  EXPECT_EQ(0, connections_started());
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(ConnectedTest, AnEventOfAnotherNameIsIgnored) {
  platform.emit(".agent_status", {{"Update", "announced"}}, "event.other");
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(ConnectionTest, ARefusedSubscriptionIsTriedAgainWithTheNextConnection) {
  platform.failures["event_add_event_handler"] = -EIO;
  start_connecting();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
  EXPECT_FALSE(is_watching());
  platform.repair();
  establish_connection();
  EXPECT_TRUE(is_watching());
}

// The service manager is updated.

TEST_F(ConnectedTest, AnAnnouncedUpdateIsLoggedAndNotReported) {
  update_service_manager();
  EXPECT_THAT(connection_states, IsEmpty());
  EXPECT_TRUE(is_connected() && is_watching() && UpdateObserver().IsBeingUpdated());
  expect_logged(
      {"I PrepareSvcmgrUpdate: The connection to the proxy will be disconnected "
       "soonas the service-manager is updated."});
}

TEST_F(ConnectedTest, AnAnnouncementCountsBeforeALaunchInTheSameEvent) {
  lose_connection();
  platform.emit(".agent_status", {{"Update", "announced"}, {"Launch", "announced"}});
  EXPECT_EQ(0, connections_started());
  EXPECT_TRUE(UpdateObserver().IsSvcmgrUpdatePrepared());
}

TEST_F(ConnectedTest, DuringAnUpdateTheLibraryIsNotConnected) {
  announce_update();
  lose_connection();
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_request_update());
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
}

TEST_F(ConnectedTest, ALossAfterTheUpdateIsReported) {
  update_service_manager();
  lose_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

TEST_F(ConnectedTest, ARejectedReconnectionIsNotTriedAgain) {
  announce_update();
  lose_connection();
  announce_launch();
  reject_connection();
  announce_launch();
  EXPECT_THAT(connection_states, ElementsAre(kRejected));
  EXPECT_EQ(1, connections_started());
  EXPECT_TRUE(UpdateObserver().IsReconnectingAfterSvcmgrUpdate());
}

TEST_F(ConnectedTest, AnUpdateAnnouncedAfterTheLossIsReported) {
  lose_connection();
  announce_update();
  announce_launch();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
  EXPECT_TRUE(UpdateObserver().IsSvcmgrUpdatePrepared());
}

TEST_F(ConnectedTest, AnAnnouncedUpdateOutlivesADisconnect) {
  announce_update();
  korvane_svcmgr_disconnect();
  start_connecting();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
  EXPECT_TRUE(UpdateObserver().IsSvcmgrUpdatePrepared());
}

TEST_F(ConnectedTest, AnUpdateOfAgentsIsNoUpdateOfTheServiceManager) {
  UpdateObserver().StartUpdate();
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
}

TEST_F(ConnectedTest, AnAnnouncementCountsDuringAnUpdateOfAgents) {
  UpdateObserver().StartUpdate();
  announce_update();
  EXPECT_TRUE(UpdateObserver().IsSvcmgrUpdatePrepared());
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
}

TEST_F(ConnectedTest, ARequestEndsAnAnnouncement) {
  announce_update();
  request_update();
  lose_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

TEST_F(ConnectedTest, ARequestEndsAnUpdateOfAgents) {
  UpdateObserver().StartUpdate();
  request_update();
  EXPECT_FALSE(UpdateObserver().IsBeingUpdated() || UpdateObserver().IsIdle());
}

TEST_F(ConnectedTest, AfterAnUpdateARequestLetsARestartBeReportedAgain) {
  update_service_manager();
  request_update();
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
}

TEST_F(ConnectionTest, AfterAnUpdateAStartOrEndLetsARestartBeReportedAgain) {
  for (const auto event : {start_update, complete_update}) {
    connect();
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    update_service_manager();
    event();
    restart_service_manager();
    EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
    LibraryTest::TearDown();
  }
  EXPECT_THAT(update_statuses,
              ElementsAre(SVCMGR_UPDATE_STATUS_STARTED, SVCMGR_UPDATE_STATUS_COMPLETED));
}

TEST_F(ConnectedTest, ASecondUpdateIsNotReportedEither) {
  update_service_manager();
  update_service_manager();
  EXPECT_THAT(connection_states, IsEmpty());
  EXPECT_EQ(2, connections_started());
}

// The end of the process.

/** Destroyed after the objects of the library; whether they called the platform. */
struct LastWatch {
  ~LastWatch() {
    if (active) std::_Exit(platform.calls.empty() ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  bool active = false;
} last_watch;

TEST_F(ConnectionTest, AtTheEndOfTheProcessThePlatformIsNotCalled) {
  const auto end_process = [this] {
    connect();
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
    platform.forget();
    last_watch.active = true;
    std::exit(EXIT_FAILURE);
  };
  EXPECT_EXIT(end_process(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

}  // namespace
