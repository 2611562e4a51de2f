// svcmgrctl beside a service manager that does something else meanwhile.
#include <gmock/gmock.h>
#include <signal.h>

#include "service_fixture.h"

namespace {

using testing::HasSubstr;

class CommandLineTest : public ServiceTest {
 protected:
  void expect_line(const testing::Matcher<std::string> &matcher) {
    EXPECT_THAT(tool_.read_line(), matcher);
  }

  ChildProcess tool_;
};

TEST_F(CommandLineTest, WhoEndsTheWaitIsToldThatTheUpdateGoesOn) {
  start_emulator({"--tick", "60000"});
  tool_.start({SVCMGRCTL, "update"});
  expect_line("update started");
  tool_.send_signal(SIGINT);
  expect_line(HasSubstr("goes on in the service manager"));
  EXPECT_EQ(tool_.wait(), 128 + SIGINT);
}

TEST_F(CommandLineTest, AnUpdateOfTheServiceEndsARequestButNoUpdateOfAgents) {
  control({"silent", "GetUsableModelList"});
  tool_.start({SVCMGRCTL, "--timeout", "0", "models", "list"});
  ASSERT_TRUE(run_until(
      [this] { return control({"status"}).find("\"requests\": 1,") != std::string::npos; }, 1));
  control({"update"});
  expect_line(HasSubstr("the service manager updated itself"));
  EXPECT_EQ(tool_.wait(), 1);

  start_emulator({"--tick", "200"});
  tool_.start({SVCMGRCTL, "--timeout", "0", "update"});
  expect_line("update started");
  control({"update"});
  tool_.await_line("update completed");
  EXPECT_EQ(tool_.wait(), 0);
}

TEST_F(CommandLineTest, AWatchTellsWhatApplicationsDoNotHear) {
  const std::string notice = " (by an update of the service manager; applications are not told)";
  tool_.start({SVCMGRCTL, "watch"});
  expect_line("connected");
  control({"update"});
  expect_line("disconnected: the connection was lost" + notice);
  expect_line("connected" + notice);
  tool_.send_signal(SIGINT);
  EXPECT_EQ(tool_.wait(), 0);

  tool_.start({SVCMGRCTL, "watch"});
  expect_line("connected");
  tool_.stop();
  control({"update"});  // which does not wait for it
}

}  // namespace
