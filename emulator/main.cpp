// A service manager for workstations.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "command_line/command_line.h"
#include "commands.h"
#include "control.h"
#include "device/device.h"
#include "loop/main_loop.h"
#include "run_command.h"
#include "sample_device.h"
#include "service.h"
#include "sockets/unique_fd.h"

namespace {

using namespace korvane::emulator;
namespace command_line = korvane::command_line;
using korvane::host::Device;
using korvane::host::MainLoop;
using korvane::host::UniqueFd;

constexpr char kControlSocket[] = "control";
constexpr int kFailure = 1;
constexpr int kLongestTickMs = 60000;

struct Arguments {
  std::string device;
  bool init = false;
  int tick_ms = 120;
  bool trace = false;
  Words command;
};

const CLI::Validator kMilliseconds(
    [](std::string &text) -> std::string {
      int milliseconds = 0;
      const bool is_number = CLI::detail::lexical_cast(text, milliseconds);
      if (is_number && milliseconds >= 0 && milliseconds <= kLongestTickMs) return "";
      return "\"" + text + "\" is no number of milliseconds from 0 to 60000";
    },
    "");

/** Shows a usage line with words that the parser does not know. */
class HelpWithUsage : public command_line::Help {
 public:
  explicit HelpWithUsage(std::string usage) : usage_(std::move(usage)) {}
  std::string make_usage(const CLI::App *, std::string) const override {
    return "Usage: " + usage_ + "\n";
  }

 private:
  const std::string usage_;
};

/**
 * Opens a file in place of each closed standard stream. Otherwise a file opened later would get its
 * number and receive printed text. The file fails on use, as a closed stream does.
 */
void occupy_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const int mode = stream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (fcntl(stream, F_GETFD) < 0) open("/dev/null", mode);
  }
}

/** Ensures one emulator per device; held while the emulator runs. */
UniqueFd lock_device(const Device &device) {
  const std::string file = device.run_directory() / "emulator.lock";
  UniqueFd lock(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return lock;
  if (lock && errno == EWOULDBLOCK) {
    throw std::runtime_error("another emulator runs on " + device.directory().string() +
                             "; \"svcmgr-emulator ctl stop\" ends it");
  }
  throw std::system_error(errno, std::generic_category(), "cannot lock " + file);
}

void quit_on_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int) { MainLoop::instance().quit(); };
  for (const int signal : {SIGTERM, SIGINT}) sigaction(signal, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

/** Keeps serving other peers when an exception leaves the loop. */
int run_to_the_end(MainLoop &loop) {
  for (;;) {
    try {
      return loop.run();
    } catch (const std::exception &error) {
      std::cerr << "svcmgr-emulator: " << error.what() << '\n';
    }
  }
}

void check_device(const Device &device) {
  if (!std::filesystem::is_directory(device.packages_directory())) {
    throw std::runtime_error(device.directory().string() +
                             " is no device directory; --init makes a sample one");
  }
  try {
    if (device.has_package(SVCMGR_APP_ID)) device.load_package(SVCMGR_APP_ID);
  } catch (const std::system_error &) {
    throw std::runtime_error((device.packages_directory() / SVCMGR_APP_ID).string() +
                             ".json, the package of the service manager, is damaged");
  }
}

int serve(const Device &device, const Arguments &arguments) {
  check_device(device);
  const UniqueFd lock = lock_device(device);
  MainLoop &loop = MainLoop::instance();
  quit_on_signals();
  Service service(loop, device, {std::chrono::milliseconds(arguments.tick_ms), arguments.trace});
  const ControlServer control(loop, device.run_directory() / kControlSocket,
                              [&service](const Words &words, const Respond &respond) {
                                execute_command(service, words, respond);
                              });
  service.listen();
  // Announced before the ready message, so that clients started after it do not receive this event.
  service.announce("Launch");
  std::cout << "svcmgr-emulator: ready on " << device.directory().string() << std::endl;
  if (const int error = run_to_the_end(loop); error != 0) {
    throw std::system_error(-error, std::generic_category(), "main loop");
  }
  return EXIT_SUCCESS;
}

/** The control command for which help is requested. */
std::optional<std::string> requested_help(const Words &words) {
  const bool is_request = std::find(words.begin(), words.end(), "--help") != words.end() ||
                          std::find(words.begin(), words.end(), "-h") != words.end();
  return is_request ? command_help(words[0]) : std::nullopt;
}

void define_device(CLI::App &app, Arguments &arguments, const std::string &otherwise) {
  app.add_option("--device", arguments.device, "Device directory (default: " + otherwise + ")")
      ->type_name("DIR");
}

void define_service(CLI::App &app, Arguments &arguments) {
  app.add_option("--tick", arguments.tick_ms,
                 "Milliseconds between two steps of an update or another job,\n0 to 60000")
      ->type_name("MS")
      ->capture_default_str()
      ->check(kMilliseconds);
  app.add_flag("--trace", arguments.trace,
               "Write every parcel and event, decoded, to standard error");
}

/** The command line grammar. Parsing fills the arguments. */
struct Grammar {
  explicit Grammar(Arguments &arguments) {
    command_line::begin_grammar(app);
    define_device(app, arguments, "$KORVANE_DEVICE");
    app.add_flag("--init", arguments.init,
                 "Create a sample device in the directory, print the shell\n"
                 "commands that select it, and exit");
    define_service(app, arguments);
    app.footer(
        "Prints one line when it is ready, and exits on SIGTERM or SIGINT.\n"
        "\"svcmgr-emulator ctl --help\" lists the commands for a running emulator.\n"
        "Exit status: 0 stopped on request, 1 failed, 2 bad usage.");
    define_ctl(arguments);
    define_run(arguments);
  }

  void define_ctl(Arguments &arguments) {
    ctl = app.add_subcommand("ctl", "Control the emulator that runs on a device");
    ctl->formatter(std::make_shared<HelpWithUsage>(
        "svcmgr-emulator ctl [--device DIR] COMMAND [ARGUMENT...]"));
    define_device(*ctl, arguments, "$KORVANE_DEVICE");
    ctl->prefix_command();
    ctl->footer(commands_help() +
                "\nExit status: 0 done, 1 refused or no emulator runs, 2 bad usage.");
  }

  void define_run(Arguments &arguments) {
    run = app.add_subcommand("run", "Run a command beside an emulator, which is then stopped");
    run->formatter(
        std::make_shared<HelpWithUsage>("svcmgr-emulator run [OPTION...] -- COMMAND..."));
    define_device(*run, arguments, "a temporary sample device");
    run->add_flag("--init", arguments.init, "Create a sample device in the directory first");
    define_service(*run, arguments);
    run->add_option("COMMAND", arguments.command, "The command and its arguments")->required();
    run->footer(
        "$KORVANE_DEVICE names the device for the command. For a new sample device,\n"
        "$KORVANE_APP_ID is set to its application, unless it is already set. Signals are passed\n"
        "on to the command.\n"
        "Exit status: that of the command, 128 plus the signal that ended it, 127 no such "
        "command,\n"
        "126 it cannot be run, 1 no service manager, 2 bad usage.");
  }

  /** Whether options of the command were parsed as options of "run". */
  bool lacks_separator() const {
    return run->get_option("COMMAND")->count() > 0 && run->remaining_size() > 0;
  }

  CLI::App app{"Emulates the service manager on a device directory.", "svcmgr-emulator"};
  CLI::App *ctl = nullptr;
  CLI::App *run = nullptr;
};

/** Returns an absolute path and exports it as the current device. */
Device chosen_device(const Arguments &arguments) {
  const char *current = std::getenv("KORVANE_DEVICE");
  const std::string name =
      arguments.device.empty() && current != nullptr ? current : arguments.device;
  if (name.empty()) throw CLI::RequiredError("--device DIR (or $KORVANE_DEVICE)");
  const std::string directory = std::filesystem::absolute(name).string();
  setenv("KORVANE_DEVICE", directory.c_str(), 1);
  return Device(directory);
}

int control_emulator(const Arguments &arguments, const Words &words) {
  if (const auto error = usage_error(words)) {
    std::cerr << "svcmgr-emulator: " << *error
              << "\nRun \"svcmgr-emulator ctl --help\" for more.\n";
    return command_line::kUsageStatus;
  }
  const Device device = chosen_device(arguments);
  const Outcome outcome = send_command(device.directory() / "run" / kControlSocket, words);
  if (outcome.status == Outcome::kOk) {
    std::cout << outcome.text << (outcome.text.empty() ? "" : "\n");
  } else {
    std::cerr << "svcmgr-emulator: " << outcome.text << '\n';
  }
  return outcome.status;
}

int serve_or_report(const Device &device, const Arguments &arguments) try {
  return serve(device, arguments);
} catch (const std::exception &error) {
  std::cerr << "svcmgr-emulator: " << error.what() << '\n';
  return kFailure;
}

int run_beside(const Arguments &arguments) {
  std::optional<Device> device;
  if (!arguments.device.empty()) device = chosen_device(arguments);
  if (arguments.init && !device) throw CLI::RequiredError("--device DIR, with --init,");
  const auto service = [&](const Device &on) { return serve_or_report(on, arguments); };
  return run_command({service, device, arguments.init, arguments.command});
}

/** Quotes a word for the shell. */
std::string shell_word(const std::string &text) {
  std::string word;
  for (const char letter : text) word += letter == '\'' ? "'\\''" : std::string(1, letter);
  return "'" + word + "'";
}

int init(const Device &device) {
  create_sample_device(device);
  std::cout << "export KORVANE_DEVICE=" << shell_word(device.directory()) << '\n'
            << "export KORVANE_APP_ID=" << shell_word(kSampleApplication) << '\n';
  return EXIT_SUCCESS;
}

/** Commands that print an answer and exit. */
int answer(const Grammar &grammar, const Arguments &arguments) {
  const Words words = grammar.ctl->remaining();
  if (const auto help = requested_help(words)) {
    std::cout << *help;
    return EXIT_SUCCESS;
  }
  return grammar.ctl->parsed() ? control_emulator(arguments, words)
                               : init(chosen_device(arguments));
}

int run(int argc, char **argv) {
  Arguments arguments;
  Grammar grammar(arguments);
  const auto values = [&](const CLI::App &command, const CLI::Option *option, const std::string &) {
    const bool is_control = &command == grammar.ctl && option == nullptr;
    return is_control ? next_words(command.remaining()) : Words();
  };
  if (command_line::answer_completion(grammar.app, argc, argv, values)) return EXIT_SUCCESS;
  try {
    grammar.app.parse(argc, argv);
    if (grammar.run->parsed()) return run_beside(arguments);
    const bool serves = !grammar.ctl->parsed() && !arguments.init;
    if (serves) return serve(chosen_device(arguments), arguments);
    return command_line::end_output(grammar.app, answer(grammar, arguments));
  } catch (const CLI::ParseError &error) {
    const int status = command_line::report(grammar.app, error);
    if (grammar.lacks_separator()) {
      std::cerr << "A command that has options follows \"--\": svcmgr-emulator run -- COMMAND...\n";
    }
    return command_line::end_output(grammar.app, status);
  }
}

}  // namespace

int main(int argc, char **argv) {
  occupy_standard_streams();
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "svcmgr-emulator: " << error.what() << '\n';
    return kFailure;
  }
}
