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
  static bool connected() {
    bool updating = false;
    return korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE;
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

TEST_F(ConnectionTest, LostWhenTheServiceEndsAndMadeAgainAtItsNextLaunch) {
  connect();
  kill_emulator();
  ASSERT_TRUE(run_until([this] { return heard_something(); }));
  EXPECT_EQ(take_connection_events(), kLost);
  EXPECT_EQ(call(), SVCMGR_ERROR_NOT_CONNECTED);
  start_emulator();
  ASSERT_TRUE(run_until([this] { return heard_something(); }));
  EXPECT_EQ(take_connection_events(), kBack);
  EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
  control({"restart"});
  ASSERT_TRUE(run_until([this] { return connection_events_.size() >= 2; }));
  EXPECT_EQ(take_connection_events(), (Events{kLost[0], kBack[0]}));
  EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
}

TEST_F(ConnectionTest, UpdatesOfTheServiceGoUnnoticed) {
  connect();
  for (int round = 0; round < 50; ++round) {
    ChildProcess update;
    update.start({EMULATOR, "ctl", "--device", device_, "update"});
    ASSERT_TRUE(run_until([] { return !connected(); })) << "round " << round;
    ASSERT_TRUE(run_until([] { return connected(); })) << "round " << round;
    ASSERT_EQ(update.wait(), 0);
    ASSERT_EQ(call(), SVCMGR_ERROR_NONE);
    ASSERT_TRUE(take_connection_events().empty()) << "round " << round;
  }
  bool updating = false;
  ASSERT_EQ(korvane_svcmgr_is_being_updated(&updating), SVCMGR_ERROR_NONE);
  EXPECT_TRUE(updating);
}

TEST_F(ConnectionTest, AnnouncedUpdateOfAServiceThatIsKilledGoesUnnoticed) {
  connect();
  control({"announce", "Update"});
  kill_emulator();
  ASSERT_TRUE(run_until([] { return !connected(); }));
  start_emulator();
  ASSERT_TRUE(run_until([] { return connected(); }));
  EXPECT_TRUE(take_connection_events().empty());
}

TEST_F(ConnectionTest, GarbageOnEitherPortIsALostConnection) {
  for (const char *port : {"main", "callback"}) {
    for (const char *kind : {"oversized", "rubbish", "half-frame"}) {
      connect();
      control({"garbage", port, kind});
      ChildProcess drop;  // the rest of half a frame never comes
      if (kind == std::string("half-frame"))
        drop.start({EMULATOR, "ctl", "--device", device_, "drop"});
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
