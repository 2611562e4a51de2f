#include <tuple>

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
}

TEST_F(ConnectedTest, AConnectInsideLostReplacesOnlyTheCallback) {
  reaction = [] { korvane_svcmgr_connect(ignore_connection, nullptr); };
  lose_connection();
  EXPECT_EQ(0, connections_started());
  announce_launch();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

TEST_F(ConnectedTest, ARejectionEndsTheConnectionAndKeepsThePort) {
  reject_connection();
  EXPECT_THAT(connection_states, ElementsAre(kRejected));
  EXPECT_EQ(SVCMGR_ERROR_NONE, start_connecting());
  EXPECT_EQ(0, connections_started());
  expect_logged({"I OnRejected: OnRejected"});
}

TEST_F(ConnectionTest, ADisconnectWhileConnectingChangesNothing) {
  start_connecting();
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_disconnect());
  EXPECT_TRUE(has_port());
}

TEST_F(ConnectionTest, ACallbackMayDisconnectWhichIsNotReported) {
  start_connecting();
  reaction = [] { EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_disconnect()); };
  establish_connection();
  EXPECT_FALSE(is_connected() || has_port() || is_watching());
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
}

// A connection that cannot be started.

TEST_F(ConnectionTest, AFailureToConnectHasACodeAndLeavesNoPortUnlessItIsUnknown) {
  const std::tuple<const char *, int, int> failures[] = {
      {"rpc_port_proxy_create", -ENOMEM, SVCMGR_ERROR_CONNECTION_FAILED},
      {"rpc_port_proxy_connect", -EINVAL, SVCMGR_ERROR_CONNECTION_FAILED},
      {"rpc_port_proxy_connect", -EACCES, SVCMGR_ERROR_PERMISSION_DENIED},
      {"rpc_port_proxy_connect", -ENOMEM, SVCMGR_ERROR_NONE}};
  for (const auto &[function, error, code] : failures) {
    platform.failures = {{function, error}};
    EXPECT_EQ(code, start_connecting());
    EXPECT_EQ(code == SVCMGR_ERROR_NONE, has_port());
  }
  expect_logged({"P SvcMgrAppPort: Failed to create proxy",
                 "E Connect: Invalid ID exception occurred!!!",
                 "E Connect: Permission denied exception occurred!!!"});
}

TEST_F(ConnectionTest, AFailureToConnectIsLoggedOnEachLevel) {
  platform.failures["rpc_port_proxy_connect"] = -EIO;
  EXPECT_EQ(SVCMGR_ERROR_CONNECTION_FAILED, start_connecting());
  EXPECT_THAT(platform.log,
              ElementsAre("D korvane_svcmgr_connect: korvane_svcmgr_connect", "I Connect: Connect",
                          "P Connect: Failed to connect SvcMgrAppPort",
                          "E Connect: Invalid IO exception occurred!!!",
                          "E korvane_svcmgr_connect: connection result = [-1]"));
}

// The service manager restarts.

TEST_F(ConnectedTest, ARestartIsReportedAsLossAndConnection) {
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
  EXPECT_TRUE(is_connected() && is_watching());
  EXPECT_THAT(platform.log,
              ElementsAre("I OnDisconnected: OnDisconnected",
                          "D AgentEventCallback: Agent status callback is invoked",
                          "D AgentEventCallback: Service manager is disconnected. Try to reconnect",
                          "I Reconnect: Re-connect", "I Disconnect: Disconnect",
                          "I DontCareConnection: Don't care about CONNECTION",
                          "I Disconnect: proxy handle was destroyed", "I Connect: Connect",
                          "I OnConnected: OnConnected", "I KeepConnection: Keep the CONNECTION"));
}

TEST_F(ConnectedTest, ALaunchWhileConnectedOrAfterADisconnectIsIgnored) {
  announce_launch();
  EXPECT_TRUE(is_connected());
  platform.failures["event_remove_event_handler"] = -EIO;
  korvane_svcmgr_disconnect();
  announce_launch();
  EXPECT_EQ(0, connections_started());
}

TEST_F(ConnectionTest, ARefusedSubscriptionIsTriedAgainWithTheNextConnection) {
  platform.failures["event_add_event_handler"] = -EIO;
  start_connecting();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected));
  platform.repair();
  establish_connection();
  EXPECT_TRUE(is_watching());
}

// The service manager is updated.

TEST_F(ConnectedTest, AnAnnouncedUpdateIsLoggedAndNotReported) {
  announce_update();
  expect_logged(
      {"I PrepareSvcmgrUpdate: The connection to the proxy will be disconnected "
       "soonas the service-manager is updated."});
  lose_connection();
  EXPECT_FALSE(is_connected());
  announce_launch();
  establish_connection();
  EXPECT_TRUE(is_connected() && is_watching() && UpdateObserver().IsBeingUpdated());
  EXPECT_THAT(connection_states, IsEmpty());
}

TEST_F(ConnectedTest, ASecondUpdateIsNotReportedEitherButALossAfterItIs) {
  update_service_manager();
  update_service_manager();
  EXPECT_THAT(connection_states, IsEmpty());
  lose_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost));
}

TEST_F(ConnectedTest, ARejectedReconnectionIsReportedAndNotTriedAgain) {
  announce_update();
  lose_connection();
  announce_launch();
  reject_connection();
  announce_launch();
  EXPECT_THAT(connection_states, ElementsAre(kRejected));
  EXPECT_EQ(1, connections_started());
}

TEST_F(ConnectedTest, AnUpdateAnnouncedAfterTheLossIsReported) {
  lose_connection();
  announce_update();
  announce_launch();
  establish_connection();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
}

TEST_F(ConnectedTest, AnAnnouncedUpdateOutlivesADisconnect) {
  announce_update();
  korvane_svcmgr_disconnect();
  start_connecting();
  establish_connection();
  lose_connection();
  EXPECT_THAT(connection_states, ElementsAre(kConnected)) << "the loss is that of the update";
}

TEST_F(ConnectedTest, AnUpdateOfAgentsIsNoUpdateOfTheServiceManager) {
  UpdateObserver().StartUpdate();
  restart_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
  update_service_manager();
  EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected)) << "this one was announced";
}

TEST_F(ConnectionTest, AfterAnUpdateARequestStartOrEndLetsARestartBeReportedAgain) {
  for (const auto event : {request_update, start_update, complete_update}) {
    connect();
    korvane_svcmgr_set_update_status_cb(ignore_update_status, nullptr);
    update_service_manager();
    event();
    restart_service_manager();
    EXPECT_THAT(connection_states, ElementsAre(kLost, kConnected));
    LibraryTest::TearDown();
  }
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
