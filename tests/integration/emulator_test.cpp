// The emulator on a device, with peers and in conditions that it would rather not meet.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "local_socket.h"
#include "rpc_port_protocol.h"
#include "service_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace korvane::host;
using testing::HasSubstr;
using testing::Not;

class EmulatorTest : public ServiceTest {
 protected:
  fs::path state_file() const { return device_ + "/service/state.json"; }

  /** What is answered to bytes that no command line and no library would send; maybe nothing. */
  std::string answer_to(const Bytes &message, const std::string &socket_path) const {
    const UniqueFd socket = connect_to(device_ + "/run/" + socket_path);
    Bytes frame;
    EXPECT_TRUE(append_frame(frame, message));
    EXPECT_EQ(write_all(socket.get(), frame, 60000), 0);
    FrameReader reader;
    const auto answer = read_frame(socket.get(), reader, 60000).value_or(Bytes());
    return std::string(answer.begin(), answer.end());
  }

  /** Leaves the emulator so many descriptors, or as many as it may have. */
  void limit_descriptors(rlim_t count = RLIM_INFINITY) const {
    rlimit limit = {};
    prlimit(emulator_.pid(), RLIMIT_NOFILE, nullptr, &limit);
    limit.rlim_cur = std::min(count, limit.rlim_max);
    ASSERT_EQ(prlimit(emulator_.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  }

  /** Waits until the emulator complains of this. */
  void await_complaint(const std::string &text) {
    std::string line;
    do {
      line = emulator_.read_line();
      ASSERT_NE(line, "") << "it has ended, and did not say: " << text;
    } while (line.find(text) == std::string::npos);
  }

  static std::string license() {
    char *text = nullptr;
    korvane_svcmgr_get_license_fulltext(&text);
    const std::string copy = text == nullptr ? "none" : text;
    std::free(text);
    return copy;
  }
};

TEST_F(EmulatorTest, AnswersWhateverItIsTold) {
  const std::string long_word(kMaxFrameSize - 4, 'x');
  const std::pair<std::string, std::string> messages[] = {
      {std::string(1 << 20, '['), "nested"},
      {"", "parse error"},
      {R"(["status",1])", "no array of words"},
      {"[\"" + long_word + "\"]", "the answer is too long"},
  };
  for (const auto &[message, answer] : messages) {
    EXPECT_THAT(answer_to(Bytes(message.begin(), message.end()), "control"), HasSubstr(answer));
  }
  // Every such letter is longer in the message than in the argument.
  std::vector<std::string> words(12, "k=str:" + std::string(120000, '\x01'));
  words.insert(words.begin(), {"event", "agent_status"});
  EXPECT_THAT(run_program(control_command(words)).output, HasSubstr("the command is too long"));
  control({"status"});
}

TEST_F(EmulatorTest, RunsOutOfDescriptorsAndGoesOn) {
  connect();
  limit_descriptors(0);
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
  for (int event = 0; event < 2; ++event) await_complaint("nobody is told of update_status");
  limit_descriptors();
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
}

TEST_F(EmulatorTest, ComesBackAsSoonAsItCan) {
  connect();
  const fs::path ports = device_ + "/run/rpc";
  fs::permissions(ports, fs::perms::all);  // others could reach it: it does not listen there
  ChildProcess restart;
  restart.start(control_command({"restart"}));
  ASSERT_TRUE(run_until([this] { return connection_events_.size() == 1; }));
  await_complaint("it cannot come back yet");
  fs::permissions(ports, fs::perms::owner_all);
  ASSERT_TRUE(run_until([this] { return connection_events_.size() == 2; }));
  EXPECT_EQ(restart.wait(), 0);
}

TEST_F(EmulatorTest, ServesWhatIsOnTheDisk) {
  connect();
  const std::string before = license();
  fs::rename(state_file(), device_ + "/kept.json");
  fs::create_directory(state_file());  // not even root can write there
  EXPECT_EQ(run_program(control_command({"license", "other"})).status, 1);
  EXPECT_EQ(license(), before);
  EXPECT_EQ(run_program({SVCMGRCTL, "models", "update", "vision.detect"}).status, 1);
  EXPECT_THAT(run_program({SVCMGRCTL, "models", "list"}).output, Not(HasSubstr("2.0.0")));
  ChildProcess restart;
  restart.start(control_command({"restart"}));
  ASSERT_TRUE(run_until([this] { return connection_events_.size() == 2; }));
  EXPECT_EQ(restart.wait(), 1);
  EXPECT_EQ(license(), before);
}

TEST_F(EmulatorTest, FollowsNoLinkWhenItWrites) {
  const fs::path target = device_ + "/target";
  for (const std::string &end : {std::string("new"), std::to_string(emulator_.pid()) + "-0"}) {
    fs::create_symlink(target, state_file().string() + "." + end);
  }
  control({"license", "new"});
  EXPECT_FALSE(fs::exists(target));
  connect();
  EXPECT_EQ(license(), "new");
}

TEST_F(EmulatorTest, DropsAClientWhoseAnswerIsTooLong) {
  std::stringstream state;
  state << std::ifstream(state_file()).rdbuf();
  std::string text = state.str();
  text.insert(text.find("Sample agents"), kMaxFrameSize, 'x');
  std::ofstream(state_file()) << text;
  control({"restart"});
  connect();
  EXPECT_EQ(license(), "none");
  ASSERT_TRUE(run_until([this] { return !connection_events_.empty(); }));
}

TEST_F(EmulatorTest, TurnsAnEndlessNameAway) {
  Hello hello;
  hello.app_id = std::string(kMaxFrameSize - 20, 'x');
  EXPECT_EQ(answer_to(hello.encode().bytes(), "rpc/" SVCMGR_APP_ID "/SvcMgrAppPort"), "");
}

TEST_F(EmulatorTest, HasEndedWhenStopIsDone) {
  // On one processor, of which it gets what the others leave.
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  const sched_param none = {};
  ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
  ASSERT_EQ(sched_setaffinity(emulator_.pid(), sizeof(one), &one), 0);
  ASSERT_EQ(sched_setscheduler(emulator_.pid(), SCHED_IDLE, &none), 0);
  control({"stop"});
  EXPECT_TRUE(emulator_.has_ended());
}

}  // namespace
