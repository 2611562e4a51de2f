// The emulator with faulty peers and under lack of resources.
#include <gmock/gmock.h>
#include <poll.h>

#include "korvane_svcmgr.hpp"
#include "ports/rpc_port_protocol.h"
#include "service_fixture.h"
#include "sockets/local_socket.h"

namespace {

using namespace korvane::host;
using korvane::svcmgr::ModelList;
using testing::HasSubstr;

class EmulatorTest : public ServiceTest {
 protected:
  /** The answer to a control message that no command line would send. */
  std::string answer_to(const std::string &message) const {
    const UniqueFd socket = connect_to(device_ + "/run/control");
    EXPECT_EQ(write_frame(socket.get(), Bytes(message.begin(), message.end()), 60000), 0);
    FrameReader reader;
    const auto answer = read_frame(socket.get(), reader, 60000).value_or(Bytes());
    return std::string(answer.begin(), answer.end());
  }

  /** Limits the number of descriptors of the emulator. */
  void limit_descriptors(const std::string &count) const {
    const std::string pid = std::to_string(emulator_.pid());
    EXPECT_EQ(run_program({"/usr/bin/prlimit", "--pid=" + pid, "--nofile=" + count + ":"}).status,
              0);
  }
};

TEST_F(EmulatorTest, AnUpdateIsSeenByTheVeryNextCall) {
  start_emulator({"--tick", "0", "--trace"});
  connect();
  const auto on_list = [](int, korvane_svcmgr_ai_model_list_h, void *) {};
  for (const std::string version : {"2.1.0", "2.2.0"}) {
    korvane_svcmgr_ai_request_usable_model_list_with_category(on_list, "vision", nullptr);
    emulator_.await_line("app_version=\"" + version + "\"");
    emulator_.await_line("models=[");
    EXPECT_EQ(run_program({SVCMGRCTL, "update"}).status, 0);
  }
}

TEST_F(EmulatorTest, AnUpdateOfNoModelEnds) {
  start_emulator({"--tick", "0", "--trace"});
  connect();
  const auto on_progress = [](int, korvane_svcmgr_ai_progress_h, void *) {};
  korvane_svcmgr_ai_request_to_update(ModelList().get(), on_progress, nullptr);
  emulator_.await_line("state=20");
}

TEST_F(EmulatorTest, PassesOverWhatIsNoRequest) {
  UniqueFd ports[2];
  for (const Port port : {Port::kMain, Port::kCallback}) {
    UniqueFd &socket = ports[static_cast<int>(port)];
    socket = connect_to(device_ + "/run/rpc/" SVCMGR_APP_ID "/SvcMgrAppPort");
    EXPECT_EQ(write_frame(socket.get(), Hello{port, "token", "app"}.encode().bytes(), 60000), 0);
  }
  FrameReader reader;
  ASSERT_TRUE(read_frame(ports[0].get(), reader, 60000));
  const Bytes requests[] = {{}, {2}, {99, 0, 0, 0}, {8, 0, 0, 0, 4, 0, 0, 0}, {2, 0, 0, 0}};
  for (const Bytes &request : requests) {
    EXPECT_EQ(write_frame(ports[0].get(), request, 60000), 0);
  }
  const Bytes level = {0, 0, 0, 0, 13, 0, 0, 0};
  EXPECT_EQ(read_frame(ports[0].get(), reader, 60000), level);
  control({"stray", "1"});
  EXPECT_EQ(write_frame(ports[0].get(), {2, 0, 0, 0}, 60000), 0);
  EXPECT_NE(read_frame(ports[0].get(), reader, 60000), level) << "stray parcels come before it";
  EXPECT_THAT(control({"status"}), HasSubstr("\"malformed_requests\": 4"));
}

TEST_F(EmulatorTest, AnswersWhateverItIsTold) {
  const std::string long_word(kMaxFrameSize - 4, 'x'), other_word(1 << 20, 'x');
  const UniqueFd silent = connect_to(device_ + "/run/control");
  const std::pair<std::string, std::string> messages[] = {
      {std::string(1 << 20, '['), "nested"},
      {"", "parse error"},
      {"\"\xff", "parse error"},
      {"[\"" + other_word + "\"]", other_word},
      {R"(["status",1])", "no array of words"},
      {"[\"" + long_word + "\"]", "the answer is too long"},
  };
  for (const auto &[message, answer] : messages) {
    EXPECT_THAT(answer_to(message), HasSubstr(answer));
  }
  control({"status"});
  pollfd end = {silent.get(), POLLIN, 0};
  EXPECT_EQ(poll(&end, 1, 60000), 1) << "who never asks is turned away";
}

TEST_F(EmulatorTest, RunsOutOfDescriptorsAndGoesOn) {
  connect();
  limit_descriptors("0");
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
  for (int event = 0; event < 2; ++event) emulator_.await_line("nobody is told of update_status");
  limit_descriptors("256");
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
}

}  // namespace
