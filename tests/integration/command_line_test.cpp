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

class CommandLineTest : public ServiceTest {
 protected:
  static Finished run(const std::string &program, const Words &arguments) {
    Words command = arguments;
    command.insert(command.begin(), program);
    return run_program(command);
  }
};

TEST_F(CommandLineTest, CommandsTellWhatCame) {
  const Row rows[] = {
      {{}, {"client-level"}, 0, "13"},
      {{}, {"--json", "agent-level"}, 0, R"("level":13)"},
      {{"license", "a \"licence\"\x01"}, {"license", "--json"}, 0, R"(a \"licence\"\u0001)"},
      {{}, {"license"}, 0, "a \"licence\""},
      {{}, {"connect"}, 0, "connected"},
      {{}, {"is-updating"}, 0, "no"},
      {{}, {"update", "com.korvane.device.vision"}, 0, "completed"},
      {{}, {"models", "list", "--description"}, 0, "Finds people"},
      {{}, {"models", "list", "--category", "vision"}, 0, "vision.segment"},
      {{}, {"models", "list", "--json"}, 0, R"("id":"vision.detect","version":"1.0.0")"},
      {{}, {"models", "update", "vision.detect@2.0.0", "--json"}, 0, R"("state":20)"},
      {{}, {"models", "list"}, 0, "2.0.0"},
      {{}, {"models", "uninstall", "vision.detect"}, 0, "completed"},
      {{}, {"models", "versions", "vision.segment"}, 0, "1.3.0"},
      {{}, {"watch", "--for", "0.01"}, 0, "connected"},
      {{"reply", "get_agent_api_level", "-1"}, {"agent-level"}, 1, "INVALID_API_LEVEL"},
      {{"reply", "get_agent_api_level", "-1"},
       {"agent-level", "--json"},
       1,
       R"("code":-1073741825)"},
      {{"reply", "request_update", "-13"}, {"update"}, 1, "SVCMGR_ERROR_PERMISSION_DENIED (-13)"},
      {{"fail-update", "7"}, {"update", "com.korvane.device.speech"}, 1, "7"},
      {{}, {"models", "update", "unknown"}, 1, "INVALID_OPERATION"},
      {{}, {"models", "list", "--category", "none"}, 1, "INVALID_PARAMETER"},
      {{"silent", "GetUsableModelList"}, {"models", "list", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"silent", "get_license"}, {"license", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"reject", "on"}, {"agent-level"}, 1, "SVCMGR_ERROR_PERMISSION_DENIED"},
      {{}, {}, 2, "svcmgrctl"},
      {{}, {"models", "versions"}, 2, "ID"},
      {{}, {"--help"}, 0, "agent-level"},
  };
  for (const Row &row : rows) {
    if (!row.prepare.empty()) control(row.prepare);
    const Finished finished = run(SVCMGRCTL, row.arguments);
    const std::string command = testing::PrintToString(row.arguments);
    EXPECT_EQ(finished.status, row.status) << command << finished.output;
    EXPECT_NE(finished.output.find(row.output), std::string::npos) << command << finished.output;
  }
  kill_emulator();
  EXPECT_EQ(run(SVCMGRCTL, {"agent-level"}).status, 1);
  unsetenv("KORVANE_APP_ID");
  EXPECT_EQ(run(SVCMGRCTL, {"agent-level"}).status, 2);
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
  for (const Row &row : rows) {
    const Finished finished = run(EMULATOR, row.arguments);
    const std::string command = testing::PrintToString(row.arguments);
    EXPECT_EQ(finished.status, row.status) << command << finished.output;
    EXPECT_NE(finished.output.find(row.output), std::string::npos) << command << finished.output;
  }
}

TEST_F(CommandLineTest, ExamplesRunToTheirEnd) {
  for (const char *example : {EXAMPLE_C, EXAMPLE_CPP}) {
    const Finished finished = run(example, {});
    EXPECT_EQ(finished.status, 0) << finished.output;
    EXPECT_NE(finished.output.find("vision.detect"), std::string::npos) << finished.output;
    control({"reply", "RequestToUpdate", "5"});
    EXPECT_NE(run(example, {}).status, 0);
    control({"reply", "RequestToUpdate", "default"});
  }
  kill_emulator();
  EXPECT_NE(run(EXAMPLE_C, {}).status, 0);
  EXPECT_NE(run(EXAMPLE_CPP, {}).status, 0);
}

}  // namespace
