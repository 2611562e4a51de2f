#include "run_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <system_error>

#include "sample_device.h"
#include "sockets/unique_fd.h"

namespace korvane::emulator {

namespace {

namespace fs = std::filesystem;

constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalStatus = 128;
constexpr int kNoLimit = -1;
/** The time limit for the service to exit. */
constexpr std::chrono::seconds kPatience(2);

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/** An absolute path, since the command may change its working directory. */
fs::path folder_of_temporary_files() {
  const char *chosen = std::getenv("TMPDIR");
  return fs::absolute(chosen == nullptr || *chosen == '\0' ? "/tmp" : chosen);
}

/** A temporary folder, removed on destruction. */
class TemporaryFolder {
 public:
  TemporaryFolder() : path_((folder_of_temporary_files() / "svcmgr-emulator-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) fail(path_.c_str());
  }
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

/**
 * Blocks every signal that could end this process before it has cleaned up; take() reads them.
 * Fault signals and terminal stop signals keep their effect.
 */
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigfillset(&held);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT, SIGSYS, SIGTSTP,
                             SIGTTIN, SIGTTOU, SIGCONT, SIGWINCH, SIGURG}) {
      sigdelset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &mask_before_);
    // The caller may have SIGCHLD ignored; children could not be waited for then.
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &child_action_before_);
    descriptor_ = host::UniqueFd(signalfd(-1, &held, SFD_CLOEXEC));
    if (!descriptor_) fail("signalfd");
  }

  /**
   * Takes the next signal. Empty on timeout, or when the other descriptor becomes readable first.
   */
  std::optional<signalfd_siginfo> take(int timeout_ms, int other = -1) const {
    pollfd entries[] = {{descriptor_.get(), POLLIN, 0}, {other, POLLIN, 0}};
    poll(entries, std::size(entries), timeout_ms);
    signalfd_siginfo info = {};
    const bool has_come = (entries[0].revents & POLLIN) != 0 &&
                          read(descriptor_.get(), &info, sizeof(info)) == sizeof(info);
    return has_come ? std::optional(info) : std::nullopt;
  }

  /** For a child: restores the signal settings of the caller of this program. */
  void let_go() const {
    sigaction(SIGCHLD, &child_action_before_, nullptr);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
  }

 private:
  sigset_t mask_before_;
  struct sigaction child_action_before_ = {};
  host::UniqueFd descriptor_;
};

/** A child process, ended on destruction and at the latest when this process ends. */
class Child {
 public:
  /** The body returns the exit status and does not throw. */
  template <typename Body>
  Child(const HeldSignals &signals, Body body) : signals_(signals), pid_(fork()) {
    if (pid_ < 0) fail("fork");
    if (pid_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    signals_.let_go();
    _exit(body());
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  ~Child() {
    if (has_ended()) return;
    send(SIGTERM);
    if (ends_within(kPatience)) return;
    send(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  /** Does nothing after the process was waited for: another process may have its ID. */
  void send(int signal) const {
    if (!has_ended_) kill(pid_, signal);
  }
  bool has_ended() {
    if (!has_ended_) has_ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
    return has_ended_;
  }
  int exit_status() const {
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : kSignalStatus + WTERMSIG(status_);
  }

 private:
  bool ends_within(std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + limit;
    while (!has_ended()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      signals_.take(static_cast<int>(left.count()));
    }
    return true;
  }

  const HeldSignals &signals_;
  const pid_t pid_;
  bool has_ended_ = false;
  int status_ = 0;
};

/** Executes the command; returns only on failure. */
int execute(const Words &command) {
  std::vector<char *> arguments;
  for (const std::string &word : command) arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  const int status = errno == ENOENT ? kNotFound : kNotExecutable;
  std::cerr << "svcmgr-emulator: " << command[0] << ": " << std::strerror(errno) << '\n';
  return status;
}

/** Runs in a process group of its own, so that a terminal interrupt does not reach the service. */
int serve_quietly(const CommandRun &run, const host::Device &device, int ready) {
  setpgid(0, 0);
  dup2(ready, STDOUT_FILENO);
  return run.serve(device);
}

/** The command has already received signals that the terminal sends on a key press. */
bool is_from_keyboard(const signalfd_siginfo &info) {
  const bool has_key = info.ssi_signo == SIGINT || info.ssi_signo == SIGQUIT;
  return has_key && info.ssi_code == SI_KERNEL;
}

/** Runs the command until it exits. */
int execute_beside(const HeldSignals &signals, const Words &words) {
  Child command(signals, [&] { return execute(words); });
  while (!command.has_ended()) {
    const auto info = signals.take(kNoLimit);
    if (!info || info->ssi_signo == SIGCHLD || is_from_keyboard(*info)) continue;
    command.send(static_cast<int>(info->ssi_signo));
  }
  return command.exit_status();
}

int run_beside_service(const CommandRun &run, const host::Device &device,
                       const HeldSignals &signals) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe");
  const host::UniqueFd readable(ends[0]);
  host::UniqueFd writable(ends[1]);
  const Child service(signals, [&] { return serve_quietly(run, device, writable.get()); });
  writable.reset();
  while (const auto info = signals.take(kNoLimit, readable.get())) {
    if (info->ssi_signo != SIGCHLD) return kSignalStatus + static_cast<int>(info->ssi_signo);
  }
  char letter = '\0';
  if (read(readable.get(), &letter, 1) != 1) return EXIT_FAILURE;  // the service reported why
  return execute_beside(signals, run.command);
}

}  // namespace

int run_command(const CommandRun &run) {
  const HeldSignals signals;
  std::optional<TemporaryFolder> folder;
  if (!run.device) folder.emplace();
  const host::Device device = run.device ? *run.device : host::Device(folder->path());
  if (folder || run.init) {
    create_sample_device(device);
    setenv("KORVANE_APP_ID", kSampleApplication, 0);
  }
  setenv("KORVANE_DEVICE", device.directory().c_str(), 1);
  return run_beside_service(run, device, signals);
}

}  // namespace korvane::emulator
