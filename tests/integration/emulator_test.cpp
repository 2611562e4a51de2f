// The emulator with faulty peers and under lack of resources.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>

#include "korvane_svcmgr.hpp"
#include "ports/rpc_port_protocol.h"
#include "service_fixture.h"
#include "sockets/local_socket.h"

namespace {

using namespace korvane::host;
using testing::HasSubstr;

/** Much longer than any step takes, in milliseconds. */
constexpr int kHangLimit = 60000;

class EmulatorTest : public ServiceTest {
 protected:
  /** Sends a frame and waits for the answer. */
  static Bytes exchange(const UniqueFd &socket, const Bytes &message) {
    EXPECT_EQ(write_frame(socket.get(), message, kHangLimit), 0);
    FrameReader reader;
    return read_frame(socket.get(), reader, kHangLimit).value_or(Bytes());
  }
  UniqueFd connect_to_control() const { return connect_to(device_ + "/run/control"); }
  void limit_descriptors(rlim_t count) const {
    const rlimit limit = {count, 256};
    ASSERT_EQ(prlimit(emulator_.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  }
};

TEST_F(EmulatorTest, TheNextCallSeesAnUpdate) {
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
  const korvane::svcmgr::ModelList no_models;
  korvane_svcmgr_ai_request_to_update(no_models.get(), on_progress, nullptr);
  emulator_.await_line("state=20");
}

TEST_F(EmulatorTest, MalformedRequestsAreCountedAndNotAnswered) {
  UniqueFd ports[2];
  for (const Port port : {Port::kMain, Port::kCallback}) {
    UniqueFd &socket = ports[static_cast<int>(port)];
    socket = connect_to(device_ + "/run/rpc/" SVCMGR_APP_ID "/SvcMgrAppPort");
    EXPECT_EQ(write_frame(socket.get(), Hello{port, "token", "app"}.encode().bytes(), kHangLimit),
              0);
  }
  FrameReader verdict;
  ASSERT_TRUE(read_frame(ports[0].get(), verdict, kHangLimit));
  const Bytes malformed[] = {{}, {2}, {99, 0, 0, 0}, {8, 0, 0, 0, 4, 0, 0, 0}};
  for (const Bytes &request : malformed) {
    EXPECT_EQ(write_frame(ports[0].get(), request, kHangLimit), 0);
  }
  const Bytes get_agent_api_level = {2, 0, 0, 0}, level = {0, 0, 0, 0, 13, 0, 0, 0};
  EXPECT_EQ(exchange(ports[0], get_agent_api_level), level);
  EXPECT_THAT(control({"status"}), HasSubstr("\"malformed_requests\": 4"));
}

TEST_F(EmulatorTest, EveryControlMessageIsAnswered) {
  const std::string long_word(kMaxFrameSize - 4, 'x'), other_word(1 << 20, 'x');
  const std::pair<std::string, std::string> messages[] = {
      {std::string(1 << 20, '['), "nested"},
      {"", "parse error"},
      {"\"\xff", "parse error"},
      {"[\"" + other_word + "\"]", other_word},
      {R"(["status",1])", "no array of words"},
      {"[\"" + long_word + "\"]", "the answer is too long"},
  };
  for (const auto &[message, expected] : messages) {
    const Bytes answer = exchange(connect_to_control(), Bytes(message.begin(), message.end()));
    EXPECT_THAT(std::string(answer.begin(), answer.end()), HasSubstr(expected));
  }
}

TEST_F(EmulatorTest, SilentControlConnectionIsClosed) {
  const UniqueFd silent = connect_to_control();
  pollfd end = {silent.get(), POLLIN, 0};
  EXPECT_EQ(poll(&end, 1, kHangLimit), 1);
}

TEST_F(EmulatorTest, LackOfDescriptorsLosesEventsOnly) {
  connect();
  limit_descriptors(0);
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
  for (int event = 0; event < 2; ++event) emulator_.await_line("cannot publish update_status");
  limit_descriptors(256);
  EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
}

}  // namespace
