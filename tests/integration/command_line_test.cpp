// svcmgrctl, the emulator's own command line, and the examples, as their users run them.
#include "service_fixture.h"

namespace {

using Words = std::vector<std::string>;

struct Row {
  Words prepare;  ///< a control command beforehand, if any
  Words arguments;
  int status;
  std::string output;  ///< what the output holds
};

constexpr const char *kDetect =
    R"({"id":"vision.detect","version":"1.0.0","title":"Object detection","description":""})";

class CommandLineTest : public ServiceTest {
 protected:
  void check(const std::string &program, const Row &row) {
    if (!row.prepare.empty()) control(row.prepare);
    Words command = row.arguments;
    command.insert(command.begin(), program);
    const Finished finished = run_program(command);
    EXPECT_EQ(finished.status, row.status) << testing::PrintToString(command) << finished.output;
    EXPECT_NE(finished.output.find(row.output), std::string::npos)
        << testing::PrintToString(command) << finished.output;
  }
};

TEST_F(CommandLineTest, CommandsTellWhatCame) {
  const Row rows[] = {
      {{}, {"client-level"}, 0, "13"},
      {{}, {"--json", "agent-level"}, 0, R"("level":13)"},
      {{"license", "a \"licence\"\x01"}, {"license", "--json"}, 0, R"(a \"licence\"\u0001)"},
      {{}, {"license"}, 0, "a \"licence\""},
      {{"license", "SVCMGR_ERROR_QEL_DISABLED"}, {"license"}, 1, "SVCMGR_ERROR_QEL_DISABLED"},
      {{"stray", "3"}, {"agent-level"}, 0, "13"},
      {{}, {"connect"}, 0, "connected"},
      {{}, {"update"}, 0, "update started\nupdate completed\n"},
      {{}, {"update", "com.korvane.device.vision"}, 0, "update started\nupdate completed\n"},
      {{}, {"models", "list", "--description"}, 0, "Finds people"},
      {{}, {"models", "list", "--category", "vision"}, 0, "vision.segment"},
      {{}, {"models", "list", "--json"}, 0, kDetect},
      {{}, {"models", "update", "vision.detect@2.0.0", "--json"}, 0, R"("state":20)"},
      {{"restart"}, {"models", "list"}, 0, "2.0.0"},
      {{}, {"models", "uninstall", "vision.detect"}, 0, "completed"},
      {{}, {"models", "versions", "vision.segment"}, 0, "1.3.0"},
      {{}, {"watch", "--for", "0.01"}, 0, "connected"},
      {{"reply", "get_agent_api_level", "-1"}, {"agent-level"}, 1, "INVALID_API_LEVEL"},
      {{}, {"agent-level", "--json"}, 1, R"("code":-1073741825)"},
      {{"reply", "request_update", "-13"}, {"update"}, 1, "SVCMGR_ERROR_PERMISSION_DENIED (-13)"},
      {{"fail-update", "7"}, {"update", "com.korvane.device.speech"}, 1, "failure code 7\n"},
      {{}, {"is-updating"}, 0, "no"},
      {{"reply", "request_update_with_list", "-1073741831"},
       {"update", "com.korvane.device.speech"},
       1,
       "IN_PROGRESS"},
      {{}, {"models", "update", "unknown"}, 1, "INVALID_OPERATION"},
      {{}, {"models", "list", "--category", "none"}, 1, "INVALID_PARAMETER"},
      {{"silent", "GetUsableModelList"}, {"models", "list", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"silent", "get_license"}, {"license", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"reject", "on"}, {"agent-level"}, 1, "SVCMGR_ERROR_PERMISSION_DENIED"},
      {{}, {}, 2, "svcmgrctl"},
      {{}, {"models", "versions"}, 2, "ID"},
      {{}, {"--help"}, 0, "agent-level"},
  };
  for (const Row &row : rows) check(SVCMGRCTL, row);
  kill_emulator();
  check(SVCMGRCTL, {{}, {"agent-level"}, 1, "SVCMGR_ERROR_CONNECTION_FAILED"});
  unsetenv("KORVANE_APP_ID");
  check(SVCMGRCTL, {{}, {"agent-level"}, 2, ""});
}

TEST_F(CommandLineTest, TheEmulatorRefusesWhatItCannotDo) {
  const Row rows[] = {
      {{}, {"--device", device_}, 1, "another emulator"},
      {{}, {"--device", device_, "--init"}, 1, "already"},
      {{}, {"--device", device_ + "/none"}, 1, "none"},
      {{}, {"--device", device_, "--tick", "never"}, 2, "tick"},
      {{}, {"ctl", "--device", device_, "reply", "get_agent_api_level"}, 2, ""},
      {{}, {"ctl", "--device", device_, "reply", "no_method", "1"}, 2, "no_method"},
      {{}, {"ctl", "--device", device_, "garbage", "main", "soup"}, 2, "soup"},
      {{}, {"ctl", "--device", device_ + "/none", "status"}, 1, ""},
      {{}, {"ctl", "--help"}, 0, "crash-before-reply"},
  };
  for (const Row &row : rows) check(EMULATOR, row);
}

TEST_F(CommandLineTest, ExamplesRunToTheirEnd) {
  for (const char *example : {EXAMPLE_C, EXAMPLE_CPP}) {
    const std::string model = "vision.detect";
    check(SVCMGRCTL, {{}, {"models", "update", model + "@1.0.0"}, 0, "completed"});
    check(example, {{}, {}, 0, model + " 1.0.0\n"});
    check(SVCMGRCTL, {{}, {"models", "list", "--json"}, 0, model + R"(","version":"2.0.0")"});
    check(example, {{}, {}, 0, model + " 2.0.0\n"});
    check(example, {{"reply", "RequestToUpdate", "5"}, {}, 1, ""});
    control({"reply", "RequestToUpdate", "default"});
  }
  kill_emulator();
  for (const char *example : {EXAMPLE_C, EXAMPLE_CPP}) check(example, {{}, {}, 1, ""});
}

}  // namespace
