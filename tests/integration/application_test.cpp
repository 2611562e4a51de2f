// What a service manager in another process reports to an application.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

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

TEST_F(ApplicationTest, AConnectionIsLostOnceHoweverItEnds) {
  const std::pair<std::vector<std::string>, bool> ends[] = {
      {{"drop"}, true},
      {{"crash-before-reply"}, true},
      {{"crash-before-reply", "get_agent_api_level"}, true},
      {{"garbage", "main", "oversized"}, true},
      {{"garbage", "main", "rubbish"}, true},
      {{"garbage", "callback", "oversized"}, false},
      {{"garbage", "callback", "rubbish"}, false}};
  for (const auto &[command, fails_the_next_call] : ends) {
    SCOPED_TRACE(testing::PrintToString(command));
    connect();
    control(command);
    EXPECT_EQ(call() != SVCMGR_ERROR_NONE, fails_the_next_call);
    expect_event(SVCMGR_CONNECTION_DISCONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NOT_CONNECTED);
    start_emulator();
    expect_event(SVCMGR_CONNECTION_CONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
    korvane_svcmgr_disconnect();
  }
}

TEST_F(ApplicationTest, AnAnswerIsReportedAsOftenAsItComesAndNoOtherOne) {
  const std::pair<const char *, std::size_t> faults[] = {
      {"wrong-seq", 0}, {"wrong-id", 0}, {"twice", 2}, {"truncated", 1}, {"huge-count", 1}};
  connect();
  for (const auto &[fault, times] : faults) {
    control({"delegate-fault", fault});
    std::vector<int> faulty, proper;
    korvane_svcmgr_ai_request_usable_model_list(on_list, &faulty);
    korvane_svcmgr_ai_request_usable_model_list(on_list, &proper);  // is answered afterwards
    ASSERT_TRUE(run_until([&] { return !proper.empty(); }));
    EXPECT_EQ(proper[0], SVCMGR_ERROR_NONE);
    EXPECT_EQ(faulty.size(), times) << fault;
  }
}

TEST_F(ApplicationTest, AFileThatReplacesStandardErrorReceivesNoLog) {
  std::FILE *file = std::tmpfile();
  const int standard_error = dup(STDERR_FILENO);
  dup2(fileno(file), STDERR_FILENO);
  dlog_print(6, "TEST", "text");
  dup2(standard_error, STDERR_FILENO);
  close(standard_error);
  EXPECT_EQ(lseek(fileno(file), 0, SEEK_END), 0);
  std::fclose(file);
}

TEST_F(ApplicationTest, LoggingLeavesErrnoAlone) {
  errno = E2BIG;
  dlog_print(6, "TEST", "text");
  EXPECT_EQ(errno, E2BIG);
}

}  // namespace
