#include "run_command.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "sample_device.h"
#include "sockets/unique_fd.h"

namespace korvane::emulator {

namespace {

namespace fs = std::filesystem;

constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalStatus = 128;

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/** A new folder that goes with the object. */
class TemporaryFolder {
 public:
  TemporaryFolder() : path_((fs::temp_directory_path() / "svcmgr-emulator-XXXXXX").string()) {
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

/** From now on signals only wait to be taken: none ends this process before it has cleared up. */
class HeldSignals {
 public:
  HeldSignals() {
    sigemptyset(&held_);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) sigaddset(&held_, signal);
    sigprocmask(SIG_BLOCK, &held_, &before_);
  }

  siginfo_t take() const {
    siginfo_t info = {};
    while (sigwaitinfo(&held_, &info) < 0) {
    }
    return info;
  }
  /** For a child, which has ways of its own. */
  void let_go() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t held_;
  sigset_t before_;
};

/** A process that is ended with the object, and with this process at the latest. */
class Child {
 public:
  /** The result of the body, which throws nothing, is the exit status. */
  template <typename Body>
  explicit Child(Body body) : pid_(fork()) {
    if (pid_ < 0) fail("fork");
    if (pid_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    _exit(body());
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  ~Child() {
    if (has_ended_) return;
    send(SIGTERM);
    waitpid(pid_, nullptr, 0);
  }

  void send(int signal) const { kill(pid_, signal); }
  bool has_ended() {
    if (!has_ended_) has_ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
    return has_ended_;
  }
  int exit_status() const {
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : kSignalStatus + WTERMSIG(status_);
  }

 private:
  const pid_t pid_;
  bool has_ended_ = false;
  int status_ = 0;
};

/** Becomes the command; returns only when that fails. */
int execute(const Words &command) {
  std::vector<char *> arguments;
  for (const std::string &word : command) arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  const int status = errno == ENOENT ? kNotFound : kNotExecutable;
  std::cerr << "svcmgr-emulator run: " << command[0] << ": " << std::strerror(errno) << '\n';
  return status;
}

/** In a process group of its own, so that what interrupts the command leaves the service. */
int serve_quietly(const CommandRun &run, const host::Device &device, int ready) {
  setpgid(0, 0);
  dup2(ready, STDOUT_FILENO);
  return run.serve(device);
}

int run_beside_service(const CommandRun &run, const host::Device &device,
                       const HeldSignals &signals) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe");
  host::UniqueFd readable(ends[0]);
  host::UniqueFd writable(ends[1]);
  const Child service([&] {
    readable.reset();
    signals.let_go();
    return serve_quietly(run, device, writable.get());
  });
  writable.reset();
  char letter = '\0';
  if (read(readable.get(), &letter, 1) != 1) return EXIT_FAILURE;  // it has told why
  Child command([&] {
    signals.let_go();
    return execute(run.command);
  });
  while (!command.has_ended()) {
    const siginfo_t info = signals.take();
    // What comes from a terminal has reached the command, too.
    const bool is_sent = info.si_signo != SIGCHLD && info.si_code != SI_KERNEL;
    if (is_sent) command.send(info.si_signo);
  }
  return command.exit_status();
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
