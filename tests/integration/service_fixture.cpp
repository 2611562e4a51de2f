#include "service_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "korvane_host.h"

namespace {

/** Much longer than any step takes; only a hang reaches it. */
constexpr std::chrono::seconds kHangLimit(120);

/** Executes the program with its output in the descriptor; it ends when its parent does. */
[[noreturn]] void become(char *const *arguments, int output, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() == parent) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], arguments);
  }
  _exit(127);
}

}  // namespace

Finished run_program(const std::vector<std::string> &command) {
  ChildProcess program;
  program.start(command);
  const std::string output = program.read_all();
  return {program.wait(), output};
}

void ChildProcess::end() {
  if (pid_ <= 0) return;
  send_signal(SIGKILL);
  wait();
}

void ChildProcess::start(const std::vector<std::string> &command) {
  int pipe_ends[2];
  if (pipe2(pipe_ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
  std::vector<char *> arguments;
  for (const std::string &word : command) arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) become(arguments.data(), pipe_ends[1], parent);
  close(pipe_ends[1]);
  if (pid_ < 0) throw std::runtime_error("cannot start " + command[0]);
  output_ = korvane::host::UniqueFd(pipe_ends[0]);
}

std::string ChildProcess::read_all() const {
  std::string all;
  char buffer[4096];
  for (ssize_t count; (count = read(output_.get(), buffer, sizeof(buffer))) > 0;) {
    all.append(buffer, static_cast<std::size_t>(count));
  }
  return all;
}

void ChildProcess::await_line(const std::string &text) const {
  std::string line;
  for (char letter; read(output_.get(), &letter, 1) == 1; line += letter) {
    if (letter != '\n') continue;
    if (line.find(text) != std::string::npos) return;
    line.clear();
  }
  FAIL() << "the program has ended without a line that contains: " << text;
}

void ChildProcess::send_signal(int signal) const {
  ::kill(pid_, signal);
}

void ChildProcess::stop() const {
  send_signal(SIGSTOP);
  waitpid(pid_, nullptr, WUNTRACED);
}

int ChildProcess::wait() {
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  output_.reset();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

ServiceTest::ServiceTest() {
  setenv("KORVANE_DEVICE", device_.c_str(), 1);
  setenv("KORVANE_APP_ID", SAMPLE_APP_ID, 1);
  if (run_program({EMULATOR, "--device", device_, "--init"}).status != 0) {
    throw std::runtime_error("no sample device");
  }
  start_emulator();
}

ServiceTest::~ServiceTest() {
  korvane_svcmgr_disconnect();
}

void ServiceTest::start_emulator(const std::vector<std::string> &options) {
  std::vector<std::string> command = {EMULATOR, "--device", device_};
  command.insert(command.end(), options.begin(), options.end());
  emulator_.end();
  emulator_.start(command);
  emulator_.await_line("ready");
}

std::vector<std::string> ServiceTest::control_command(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {EMULATOR, "ctl", "--device", device_});
  return arguments;
}

std::string ServiceTest::control(const std::vector<std::string> &arguments) const {
  const Finished finished = run_program(control_command(arguments));
  EXPECT_EQ(finished.status, 0) << arguments[0] << ": " << finished.output;
  return finished.output;
}

bool ServiceTest::run_until(const std::function<bool()> &condition, int wait_ms) {
  const auto deadline = std::chrono::steady_clock::now() + kHangLimit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    korvane_host_main_loop_step(wait_ms);
  }
  return true;
}

void ServiceTest::settle() const {
  ASSERT_TRUE(run_until(
      [this] { return control({"status"}).find("\"jobs\": []") != std::string::npos; }, 1));
  while (korvane_host_main_loop_step(0) == 1) {
  }
}

void ServiceTest::connect() {
  ASSERT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE);
  expect_event(SVCMGR_CONNECTION_CONNECTED);
}

void ServiceTest::expect_event(korvane_svcmgr_connection_state_e state) {
  ASSERT_TRUE(run_until([this] { return !connection_events_.empty(); }));
  EXPECT_EQ(std::exchange(connection_events_, {}), std::vector{state});
}

void ServiceTest::on_connection(int result, korvane_svcmgr_connection_state_e state,
                                void *user_data) {
  EXPECT_EQ(result, 0);
  static_cast<ServiceTest *>(user_data)->connection_events_.push_back(state);
}
