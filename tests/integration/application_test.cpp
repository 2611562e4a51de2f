// What a service manager in another process reports to an application.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>

#include "dlog.h"
#include "service_fixture.h"

namespace {

void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
  korvane_svcmgr_ai_model_list_destroy(list);
  static_cast<std::vector<int> *>(user_data)->push_back(result);
}

class ApplicationTest : public ServiceTest {
 protected:
  static int call() {
    int level = 0;
    return korvane_svcmgr_get_agent_api_level(&level);
  }
};

TEST_F(ApplicationTest, LosesItsConnectionOnceHoweverItEnds) {
  const struct {
    std::vector<std::string> command;
    bool is_noticed_by_a_call;
  } ends[] = {
      {{"drop"}, true},
      {{"crash-before-reply"}, true},
      {{"crash-before-reply", "get_agent_api_level"}, true},
      {{"garbage", "main", "oversized"}, true},
      {{"garbage", "main", "rubbish"}, true},
      {{"garbage", "callback", "oversized"}, false},
      {{"garbage", "callback", "rubbish"}, false},
  };
  for (const auto &end : ends) {
    SCOPED_TRACE(testing::PrintToString(end.command));
    connect();
    control(end.command);
    EXPECT_EQ(call() != SVCMGR_ERROR_NONE, end.is_noticed_by_a_call);
    expect_told(SVCMGR_CONNECTION_DISCONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NOT_CONNECTED);
    start_emulator();
    expect_told(SVCMGR_CONNECTION_CONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
    korvane_svcmgr_disconnect();
  }
}

TEST_F(ApplicationTest, HearsOfOddAnswersWhatTheyHold) {
  connect();
  const std::pair<const char *, std::size_t> faults[] = {
      {"wrong-seq", 0}, {"wrong-id", 0}, {"twice", 2}, {"truncated", 1}, {"huge-count", 1}};
  for (const auto &[fault, times] : faults) {
    control({"delegate-fault", fault});
    std::vector<int> faulty;
    std::vector<int> proper;  // comes after it
    korvane_svcmgr_ai_request_usable_model_list(on_list, &faulty);
    korvane_svcmgr_ai_request_usable_model_list(on_list, &proper);
    ASSERT_TRUE(run_until([&] { return !proper.empty(); }));
    EXPECT_EQ(proper[0], SVCMGR_ERROR_NONE);
    EXPECT_EQ(faulty.size(), times) << fault;
  }
}

TEST_F(ApplicationTest, LogsNothingToWhatIsStandardErrorNoMore) {
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK), 0);
  const int standard_error = dup(STDERR_FILENO);
  dup2(pipe_ends[1], STDERR_FILENO);
  errno = E2BIG;
  dlog_print(6, "TEST", "text");
  EXPECT_EQ(errno, E2BIG) << "the caller's";
  dup2(standard_error, STDERR_FILENO);
  char letter = '\0';
  EXPECT_EQ(read(pipe_ends[0], &letter, 1), -1);
  for (const int descriptor : {standard_error, pipe_ends[0], pipe_ends[1]}) close(descriptor);
}

}  // namespace
