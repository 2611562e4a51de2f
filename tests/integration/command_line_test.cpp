// svcmgrctl, the emulator's own command line, and the examples, as their users run them.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "service_fixture.h"

namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

Words split(const std::string &line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

struct Row {
  std::string arguments;  ///< those of the emulator's "ctl" prepare the next row
  int status;
  std::string output;  ///< what the output holds
};

constexpr const char *kDetect =
    R"({"id":"vision.detect","version":"1.0.0","title":"Object detection","description":""})";

class CommandLineTest : public ServiceTest {
 protected:
  static void check(Words command, int status, const std::string &output) {
    SCOPED_TRACE(testing::PrintToString(command));
    const Finished finished = run_program(command);
    EXPECT_EQ(finished.status, status) << finished.output;
    EXPECT_THAT(finished.output, HasSubstr(output));
    EXPECT_EQ(finished.output.find_first_of("\x1b\x07"), std::string::npos) << "reaches a terminal";
    if (std::find(command.begin(), command.end(), "--json") == command.end()) return;
    EXPECT_NE(finished.output, "");
    std::istringstream lines(finished.output);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(nlohmann::json::accept(line)) << line;
    }
  }
  void check(const char *program, const Row &row) {
    Words words = split(row.arguments);
    if (program == std::string(SVCMGRCTL) && !words.empty() && words[0] == "ctl") {
      control(Words(words.begin() + 1, words.end()));
      return;
    }
    words.insert(words.begin(), program);
    check(words, row.status, row.output);
  }

  void expect_line(const testing::Matcher<std::string> &matcher) {
    EXPECT_THAT(tool_.read_line(), matcher);
  }

  ChildProcess tool_;
};

TEST_F(CommandLineTest, CommandsTellWhatCame) {
  control({"license", "a \"licence\"\x01"});
  check({SVCMGRCTL, "license", "--json"}, 0, R"(a \"licence\"\u0001)");
  control({"license", "red \x1b[31m, left \u202e, bell \x07"});
  check({SVCMGRCTL, "license"}, 0, "red \uFFFD[31m, left \uFFFD, bell \uFFFD\n");
  const Row rows[] = {
      {"client-level --json", 0, "13"},
      {"--json agent-level", 0, R"("level":13)"},
      {"license --verbose", 0, "agent license : red , left"},
      {"ctl license SVCMGR_ERROR_QEL_DISABLED", 0, ""},
      {"license", 1, "SVCMGR_ERROR_QEL_DISABLED"},
      {"ctl stray 3", 0, ""},
      {"agent-level", 0, "13"},
      {"update", 0, "update started\nupdate completed\n"},
      {"update com.korvane.device.vision --json", 0, "completed"},
      {"models list --description", 0, "Finds people"},
      {"models list --json", 0, kDetect},
      {"models update vision.detect@2.0.0 --json", 0, R"("state":20)"},
      {"ctl restart", 0, ""},
      {"models list", 0, "2.0.0"},
      {"models versions vision.segment --json", 0, "1.3.0"},
      {"models versions \xff\x1b", 1, "\"\uFFFD\uFFFD\""},
      {"watch --for 0.01 --json", 0, "connected"},
      {"ctl reply get_agent_api_level -1", 0, ""},
      {"agent-level --json", 1, R"("code":-1073741825)"},
      {"ctl fail-update 7", 0, ""},
      {"update com.korvane.device.speech", 1, "failure code 7\n"},
      {"is-updating --json", 0, ""},
      {"ctl silent GetUsableModelList", 0, ""},
      {"models list --timeout 0.05", 1, "TIMEOUT"},
      {"ctl silent off", 0, ""},
      {"models list", 0, "vision.segment"},
      {"ctl reject on", 0, ""},
      {"agent-level", 1, "SVCMGR_ERROR_PERMISSION_DENIED"},
      {"--version", 0, "svcmgrctl " KORVANE_SVCMGR_VERSION_TEXT "\n"},
      {"--complete --app com.example.viewer mo", 0, "models\n"},
  };
  for (const Row &row : rows) check(SVCMGRCTL, row);
}

TEST_F(CommandLineTest, WhatIsWrongIsNamedWithWhatToDo) {
  const std::string no_device = device_ + "/none";
  const Row rows[] = {
      {"", 2, "no command; choose one of connect"},
      {"model list", 2, R"("model"; did you mean "models"?)"},
      {"agent-level --jsn=1", 2, R"("--jsn"; did you mean "--json"?)"},
      {"agent-level --timeout soon", 2, R"("soon" is no number of seconds)"},
      {"update nosuch", 1, R"(no agent "nosuch" is installed)"},
      {"models update vision.detct", 1, R"(did you mean "vision.detect"?)"},
      {"models update vision.detect@9", 1, R"(no version "9"; there are 1.0.0, 1.1)"},
      {"models uninstall vision.segment", 0, ""},
      {"models uninstall vision.segment", 1, "vision.segment is not installed"},
      {"agent-level --device " + no_device, 1, no_device + " --init"},
      {"agent-level --app com.example.viewr", 1, "com.example.viewer"},
  };
  for (const Row &row : rows) check(SVCMGRCTL, row);
  emulator_.end();
  check(SVCMGRCTL, {"agent-level", 1, R"(start one with "svcmgr-emulator --device)"});
  unsetenv("KORVANE_APP_ID");
  check(SVCMGRCTL, {"agent-level", 2, "KORVANE_APP_ID"});
}

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

TEST_F(CommandLineTest, ACommandRunsBesideAServiceThatGoesWithIt) {
  const std::filesystem::path folder = std::filesystem::path(device_).parent_path() / "temporary";
  std::filesystem::create_directory(folder);
  setenv("TMPDIR", folder.c_str(), 1);
  unsetenv("KORVANE_APP_ID");
  const std::string script = "test \"$KORVANE_DEVICE\" != \"$0\" && \"$1\" update && exit 7";
  check({EMULATOR, "run", "--", "sh", "-c", script, device_, SVCMGRCTL}, 7, "update completed");
  check(EMULATOR, {"run -- no-such-command", 127, "no-such-command"});
  tool_.start({EMULATOR, "run", "--", "sh", "-c", "echo up; exec sleep 600"});
  ASSERT_EQ(tool_.read_line(), "up");
  tool_.send_signal(SIGTERM);
  EXPECT_EQ(tool_.wait(), 128 + SIGTERM);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  unsetenv("TMPDIR");
}

TEST_F(CommandLineTest, TheEmulatorRefusesWhatItCannotDo) {
  setenv("KORVANE_DEVICE", device_.c_str(), 1);
  const Row rows[] = {
      {"", 1, "another emulator"},
      {"--init", 1, "already"},
      {"--device " + device_ + "/none", 1, "none"},
      {"--tick never", 2, "tick"},
      {"ctl reply get_agent_api_level", 2, ""},
      {"ctl reply no_method 1", 2, "no_method"},
      {"ctl stray 4294967297", 2, "4294967297"},
      {"ctl status more", 2, ""},
      {"ctl garbage main soup", 2, "soup"},
      {"ctl --device " + device_ + "/none status", 1, "start one with"},
      {"ctl reply --help", 0, "METHOD CODE|default"},
      {"ctl statsu", 2, R"("statsu"; did you mean "status"?)"},
      {"--device " + device_ + "/service --init", 1, "holds other things"},
      {"--complete ctl reply request_update_", 0, "request_update_with_list\n"},
  };
  for (const Row &row : rows) check(EMULATOR, row);
  emulator_.end();
  const std::string package = device_ + "/packages/com.korvane.device.svcmgr.json";
  std::ofstream(package) << "{";
  check(EMULATOR, {"", 1, package});
}

/** Expects in a manual the options and commands that its program offers after a command. */
void expect_in_manual(const std::string &manual, const Words &command) {
  for (const char *begun : {"--", ""}) {
    Words completion = command;
    completion.insert(completion.begin() + 1, "--complete");
    completion.push_back(begun);
    for (const std::string &word : split(run_program(completion).output)) {
      EXPECT_NE(manual.find(word), std::string::npos) << word;
      Words inner = command;
      inner.push_back(word);
      const bool is_command = *begun == '\0' && word != "ctl";  // which tells about itself
      if (is_command && inner.size() <= 3) expect_in_manual(manual, inner);
    }
  }
}

TEST_F(CommandLineTest, ManualsNameEveryCommandAndOption) {
  setenv("KORVANE_DEVICE", "/no/agents/nor/models/that/would/be/offered", 1);
  for (const auto &[program, file] :
       {std::pair(SVCMGRCTL, SVCMGRCTL_MANUAL), std::pair(EMULATOR, EMULATOR_MANUAL)}) {
    std::ifstream stream(file);
    expect_in_manual(std::string(std::istreambuf_iterator<char>(stream), {}), {program});
  }
}

TEST_F(CommandLineTest, ExamplesRunToTheirEnd) {
  for (const char *example : {EXAMPLE_C, EXAMPLE_CPP}) {
    check(SVCMGRCTL, {"models update vision.detect@1.0.0", 0, "completed"});
    check(example, {"", 0, "vision.detect 1.0.0\n"});
    check(SVCMGRCTL, {"models list --json", 0, R"(vision.detect","version":"2.0.0")"});
    check(example, {"", 0, "vision.detect 2.0.0\n"});
    control({"reply", "RequestToUpdate", "5"});
    check(example, {"", 1, ""});
    control({"reply", "RequestToUpdate", "default"});
  }
  emulator_.end();
  for (const char *example : {EXAMPLE_C, EXAMPLE_CPP}) {
    check(example, {"", 1, "E/SERVICE_MANAGER_CLIENT: "});
  }
}

}  // namespace
