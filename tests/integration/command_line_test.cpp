// svcmgrctl, the emulator's own command line, and the examples, as their users run them.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

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

  void restart_emulator_with_tick(const std::string &milliseconds) {
    kill_emulator();
    emulator_.start({EMULATOR, "--device", device_, "--tick", milliseconds});
    ASSERT_NE(emulator_.read_line().find("ready"), std::string::npos);
  }

  ChildProcess tool_;
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
      {{}, {"is-updating"}, 0, "cannot be seen"},
      {{"reply", "request_update_with_list", "-1073741831"},
       {"update", "com.korvane.device.speech"},
       1,
       "IN_PROGRESS"},
      {{"silent", "GetUsableModelList"}, {"models", "list", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"silent", "get_license"}, {"license", "--timeout", "0.05"}, 1, "TIMEOUT"},
      {{"reject", "on"}, {"agent-level"}, 1, "SVCMGR_ERROR_PERMISSION_DENIED"},
      {{}, {"--help"}, 0, "agent-level"},
      {{}, {"models", "update", "--help"}, 0, "--timeout"},
      {{}, {"--version"}, 0, "svcmgrctl " KORVANE_SVCMGR_VERSION_TEXT "\n"},
      {{}, {"--complete", "--app", "com.example.viewer", "mo"}, 0, "models\n"},
  };
  for (const Row &row : rows) check(SVCMGRCTL, row);
}

TEST_F(CommandLineTest, WhatIsWrongIsNamedWithWhatToDo) {
  const std::string no_device = device_ + "/none";
  const Row rows[] = {
      {{}, {}, 2, "no command; choose one of connect"},
      {{}, {"model", "list"}, 2, R"("model"; did you mean "models"?)"},
      {{}, {"models", "lst"}, 2, R"("lst"; did you mean "list"?)"},
      {{}, {"models", "versions"}, 2, "ID is required"},
      {{}, {"agent-level", "--jsn=1"}, 2, R"("--jsn"; did you mean "--json"?)"},
      {{}, {"agent-level", "twice"}, 2, R"(unexpected word "twice")"},
      {{}, {"agent-level", "--timeout", "soon"}, 2, R"("soon" is no number of seconds)"},
      {{}, {"update", "nosuch"}, 1, R"(no agent "nosuch" is installed)"},
      {{}, {"models", "update", "vision.detct"}, 1, R"(did you mean "vision.detect"?)"},
      {{}, {"models", "update", "vision.detect@9"}, 1, R"(no version "9"; there are 1.0.0, 1.1)"},
      {{}, {"models", "versions", "nosuch"}, 1, R"("svcmgrctl models list" shows)"},
      {{}, {"models", "uninstall", "vision.segment"}, 0, ""},
      {{}, {"models", "uninstall", "vision.segment"}, 1, "vision.segment is not installed"},
      {{}, {"models", "list", "--category", "none"}, 1, R"(provides the category "none")"},
      {{}, {"agent-level", "--device", no_device}, 1, no_device + " --init"},
      {{}, {"agent-level", "--app", "com.example.viewr"}, 1, "com.example.viewer"},
  };
  for (const Row &row : rows) check(SVCMGRCTL, row);
  kill_emulator();
  check(SVCMGRCTL, {{}, {"agent-level"}, 1, R"(start one with "svcmgr-emulator --device)"});
  unsetenv("KORVANE_APP_ID");
  check(SVCMGRCTL, {{}, {"agent-level"}, 2, "KORVANE_APP_ID"});
}

TEST_F(CommandLineTest, EveryOutputForProgramsIsJson) {
  const Words commands[] = {{"connect"},
                            {"client-level"},
                            {"agent-level"},
                            {"license"},
                            {"update"},
                            {"is-updating"},
                            {"watch", "--for", "0.01"},
                            {"models", "list", "--description"},
                            {"models", "versions", "vision.detect"},
                            {"models", "update", "vision.detect"},
                            {"models", "uninstall", "vision.detect"},
                            {"models", "versions", "no UTF-8: \xff, a control: \x1b"}};
  for (const Words &command : commands) {
    Words words = command;
    words.insert(words.begin(), {SVCMGRCTL, "--json"});
    std::istringstream output(run_program(words).output);
    int count = 0;
    for (std::string line; std::getline(output, line); ++count) {
      EXPECT_TRUE(nlohmann::json::accept(line)) << line;
    }
    EXPECT_GT(count, 0) << testing::PrintToString(command);
  }
}

TEST_F(CommandLineTest, NothingOfTheServiceReachesATerminalRaw) {
  control({"license", "red \x1b[31m, reversed \u202e, bell \x07"});
  EXPECT_EQ(run_program({SVCMGRCTL, "license"}).output,
            "red \uFFFD[31m, reversed \uFFFD, bell \uFFFD\n");
  const std::string log = run_program({SVCMGRCTL, "--verbose", "license"}).output;
  EXPECT_NE(log.find("agent license : red , reversed"), std::string::npos) << log;
  EXPECT_EQ(log.find_first_of("\x1b\x07"), std::string::npos) << log;
  const std::string unknown = run_program({SVCMGRCTL, "models", "versions", "\xff\x1b"}).output;
  EXPECT_NE(unknown.find("\"\uFFFD\uFFFD\""), std::string::npos) << unknown;
}

TEST_F(CommandLineTest, TheTimeRunsAnewWithEveryReport) {
  restart_emulator_with_tick("100");
  Words command = {SVCMGRCTL, "--timeout", "3", "models", "update"};
  command.insert(command.end(), 8, "vision.detect");  // 32 reports, in more than the time
  EXPECT_EQ(run_program(command).status, 0);
}

TEST_F(CommandLineTest, WhoEndsTheWaitIsToldThatTheUpdateGoesOn) {
  restart_emulator_with_tick("60000");
  tool_.start({SVCMGRCTL, "update"});
  ASSERT_EQ(tool_.read_line(), "update started");
  tool_.send_signal(SIGINT);
  const std::string last_words = tool_.read_line();
  EXPECT_NE(last_words.find("goes on in the service manager"), std::string::npos) << last_words;
  EXPECT_EQ(tool_.wait(), 128 + SIGINT);
}

TEST_F(CommandLineTest, AnUpdateOfTheServiceEndsARequestButNoUpdateOfAgents) {
  control({"silent", "GetUsableModelList"});
  tool_.start({SVCMGRCTL, "--timeout", "0", "models", "list"});
  ASSERT_TRUE(run_until(
      [this] { return control({"status"}).find("\"requests\": 1,") != std::string::npos; }, 1));
  control({"update"});
  const std::string last_words = tool_.read_line();
  EXPECT_NE(last_words.find("the service manager updated itself"), std::string::npos) << last_words;
  EXPECT_EQ(tool_.wait(), 1);

  restart_emulator_with_tick("200");
  tool_.start({SVCMGRCTL, "--timeout", "0", "update"});
  ASSERT_EQ(tool_.read_line(), "update started");
  control({"update"});
  while (tool_.read_line() != "update completed") ASSERT_FALSE(tool_.has_ended());
  EXPECT_EQ(tool_.wait(), 0);
}

TEST_F(CommandLineTest, AWatchTellsWhatApplicationsDoNotHear) {
  tool_.start({SVCMGRCTL, "watch"});
  ASSERT_EQ(tool_.read_line(), "connected");
  control({"update"});
  for (const char *event : {"disconnected", "connected"}) {
    const std::string line = tool_.read_line();
    EXPECT_EQ(line.rfind(event, 0), 0U) << line;
    EXPECT_NE(line.find("applications are not told"), std::string::npos) << line;
  }
  tool_.send_signal(SIGINT);
  EXPECT_EQ(tool_.wait(), 0);
}

TEST_F(CommandLineTest, ACommandRunsBesideAServiceThatGoesWithIt) {
  const std::filesystem::path folder = std::filesystem::path(device_).parent_path() / "temporary";
  std::filesystem::create_directory(folder);
  setenv("TMPDIR", folder.c_str(), 1);
  unsetenv("KORVANE_APP_ID");
  const std::string script = "test \"$KORVANE_DEVICE\" != \"$0\" && \"$1\" update && exit 7";
  check(EMULATOR,
        {{}, {"run", "--", "sh", "-c", script, device_, SVCMGRCTL}, 7, "update completed"});
  check(EMULATOR, {{}, {"run", "--", "no-such-command"}, 127, "no-such-command"});
  tool_.start({EMULATOR, "run", "--", "sh", "-c", "echo up; exec sleep 600"});
  ASSERT_EQ(tool_.read_line(), "up");
  tool_.send_signal(SIGTERM);
  EXPECT_EQ(tool_.wait(), 128 + SIGTERM);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  unsetenv("TMPDIR");
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
      {{}, {"ctl", "--device", device_ + "/none", "status"}, 1, "start one with"},
      {{}, {"ctl", "--help"}, 0, "crash-before-reply"},
      {{}, {"ctl", "reply", "--help"}, 0, "METHOD CODE|default"},
      {{}, {"ctl", "statsu"}, 2, R"("statsu"; did you mean "status"?)"},
      {{}, {"clt"}, 2, R"("clt"; did you mean "ctl"?)"},
      {{}, {"--device", device_ + "/service", "--init"}, 1, "holds other things"},
      {{}, {"--complete", "ctl", "reply", "request_update_"}, 0, "request_update_with_list\n"},
  };
  for (const Row &row : rows) check(EMULATOR, row);
  kill_emulator();
  const std::string package = device_ + "/packages/com.korvane.device.svcmgr.json";
  std::ofstream(package) << "{";
  check(EMULATOR, {{}, {"--device", device_}, 1, package});
}

/** The words that a program offers after others. */
Words offered(const std::string &program, Words words, const std::string &begun) {
  words.insert(words.begin(), {program, "--complete"});
  words.push_back(begun);
  std::istringstream output(run_program(words).output);
  return {std::istream_iterator<std::string>(output), {}};
}

/** Expects every option and, below, every command that a program understands in its manual. */
void expect_in_manual(const std::string &program, const std::string &manual, const Words &command) {
  for (const std::string &option : offered(program, command, "--")) {
    EXPECT_NE(manual.find("*" + option + "*"), std::string::npos) << program << ' ' << option;
  }
  for (const std::string &word : offered(program, command, "")) {
    Words inner = command;
    inner.push_back(word);
    const std::string name = command.empty() ? word : command[0] + " " + word;
    EXPECT_NE(manual.find("*" + name), std::string::npos) << program << ' ' << name;
    if (name != "update" && name != "ctl" && inner.size() < 3) {
      expect_in_manual(program, manual, inner);
    }
  }
}

TEST_F(CommandLineTest, ManualsNameEveryCommandAndOption) {
  kill_emulator();  // which would offer models, too
  for (const auto &[program, file] :
       {std::pair(SVCMGRCTL, SVCMGRCTL_MANUAL), std::pair(EMULATOR, EMULATOR_MANUAL)}) {
    std::ifstream stream(file);
    const std::string manual(std::istreambuf_iterator<char>(stream), {});
    expect_in_manual(program, manual, {});
  }
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
