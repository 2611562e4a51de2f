// The programs of README and guide do what their text says of them.
#include <gmock/gmock.h>

#include <cstdlib>

#include "service_fixture.h"

void update_to_newest(const std::string &id);

namespace {

using testing::HasSubstr;

class GuideTest : public ServiceTest {
 protected:
  /** Of a program's output only what it prints itself. */
  GuideTest() { setenv("KORVANE_LOG", "none", 1); }
};

TEST_F(GuideTest, ThePollLoopConnectsWhereTheLibraryDoesNotAndSeesWhatIsNotTold) {
  emulator_.end();
  ChildProcess program;
  program.start({SNIPPET_STAY_CONNECTED});
  start_emulator();
  EXPECT_EQ(program.read_line(), "connected") << "after a first connection that failed";

  control({"update"});
  const auto program_is_back = [this] {
    return control({"status"}).find(SAMPLE_APP_ID) != std::string::npos;
  };
  ASSERT_TRUE(run_until(program_is_back, 10));
  control({"restart"});
  EXPECT_EQ(program.read_line(), "not connected");
  EXPECT_EQ(program.read_line(), "connected") << "in silence, after an announced update";
}

TEST_F(GuideTest, AModelWithoutAVersionIsUpdatedToTheNewest) {
  connect();
  update_to_newest("vision.detect");
  settle();
  EXPECT_THAT(run_program({SVCMGRCTL, "models", "list"}).output, HasSubstr("2.0.0"));
}

}  // namespace
