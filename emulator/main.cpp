// The stand-in of the service manager on a workstation.

#include <fcntl.h>
#include <sys/file.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "control.h"
#include "device.h"
#include "main_loop.h"
#include "sample_device.h"
#include "service.h"
#include "unique_fd.h"

namespace {

using namespace korvane::emulator;
using korvane::host::Device;
using korvane::host::MainLoop;
using korvane::host::UniqueFd;

constexpr char kControlSocket[] = "control";
constexpr int kFailure = 1;
constexpr int kUsageFailure = 2;

struct Arguments {
  std::string device;
  bool init = false;
  int tick_ms = 120;
  bool trace = false;
};

/** Shows the words that the parser leaves to the running emulator, too. */
struct ControlHelp : CLI::Formatter {
  std::string make_usage(const CLI::App *, std::string) const override {
    return "Usage: svcmgr-emulator ctl [--device DIR] COMMAND [ARGUMENT...]\n";
  }
};

/** One emulator per device: held while it runs. */
UniqueFd lock_device(const Device &device) {
  const auto file = device.run_directory() / "emulator.lock";
  UniqueFd lock(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock || flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error("another emulator runs on " + device.directory().string());
  }
  return lock;
}

void quit_on_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int) { MainLoop::instance().quit(); };
  for (const int signal : {SIGTERM, SIGINT}) sigaction(signal, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

/** Nothing that fails on behalf of one peer ends the service of the others. */
int run_to_the_end(MainLoop &loop) {
  for (;;) {
    try {
      return loop.run();
    } catch (const std::exception &error) {
      std::cerr << "svcmgr-emulator: " << error.what() << '\n';
    }
  }
}

int serve(const Device &device, const Arguments &arguments) {
  if (!std::filesystem::is_directory(device.packages_directory())) {
    throw std::runtime_error(device.directory().string() +
                             " is no device; --init makes a sample one");
  }
  const UniqueFd lock = lock_device(device);
  MainLoop &loop = MainLoop::instance();
  quit_on_signals();
  Service service(loop, device, {std::chrono::milliseconds(arguments.tick_ms), arguments.trace});
  const ControlServer control(loop, device.run_directory() / kControlSocket,
                              [&service](const Words &words, const Respond &respond) {
                                execute_command(service, words, respond);
                              });
  service.listen();
  // Announced before anybody can know: a client that connects afterwards does not hear of it.
  service.announce("Launch");
  std::cout << "svcmgr-emulator: ready on " << device.directory().string() << std::endl;
  if (const int error = run_to_the_end(loop); error != 0) {
    throw std::system_error(-error, std::generic_category(), "main loop");
  }
  return EXIT_SUCCESS;
}

int control_emulator(const Device &device, const Words &words) {
  if (const auto error = usage_error(words)) {
    std::cerr << "svcmgr-emulator ctl: " << *error << "\nRun with --help for the commands.\n";
    return kUsageFailure;
  }
  const Outcome outcome = send_command(device.directory() / "run" / kControlSocket, words);
  if (outcome.status == Outcome::kOk) {
    std::cout << outcome.text << (outcome.text.empty() ? "" : "\n");
  } else {
    std::cerr << "svcmgr-emulator ctl: " << outcome.text << '\n';
  }
  return outcome.status;
}

CLI::App *define(CLI::App &app, Arguments &arguments) {
  const std::string device_help = "Device directory (default: $KORVANE_DEVICE)";
  app.add_option("--device", arguments.device, device_help)->type_name("DIR");
  app.add_flag("--init", arguments.init, "Make a sample device in the directory, and end");
  app.add_option("--tick", arguments.tick_ms,
                 "Milliseconds between two steps of anything that takes time")
      ->type_name("MS")
      ->capture_default_str()
      ->check(CLI::Range(0, 60000));
  app.add_flag("--trace", arguments.trace,
               "Tell every parcel and event on standard error, decoded, one line each");
  CLI::App *ctl = app.add_subcommand("ctl", "Tell the emulator that runs on a device what to do");
  ctl->formatter(std::make_shared<ControlHelp>());
  ctl->add_option("--device", arguments.device, device_help)->type_name("DIR");
  ctl->prefix_command();
  ctl->footer(commands_help() +
              "\nExit status: 0 done, 1 refused or no emulator runs, 2 bad usage.\n");
  app.footer(
      "Prints one line when it is ready, and ends on SIGTERM or SIGINT.\n"
      "\"svcmgr-emulator ctl --help\" lists what a running one can be told.");
  return ctl;
}

/** Absolute, and made known to everything that asks for the current device. */
Device chosen_device(const Arguments &arguments) {
  const char *current = std::getenv("KORVANE_DEVICE");
  const std::string name =
      arguments.device.empty() && current != nullptr ? current : arguments.device;
  if (name.empty()) throw CLI::RequiredError("--device (or $KORVANE_DEVICE)");
  const std::string directory = std::filesystem::absolute(name).string();
  setenv("KORVANE_DEVICE", directory.c_str(), 1);
  return Device(directory);
}

int run(int argc, char **argv) {
  CLI::App app("Stands in for the service manager on a device directory.", "svcmgr-emulator");
  Arguments arguments;
  const CLI::App *ctl = define(app, arguments);
  try {
    app.parse(argc, argv);
    const Device device = chosen_device(arguments);
    if (ctl->parsed()) return control_emulator(device, ctl->remaining());
    if (!arguments.init) return serve(device, arguments);
    create_sample_device(device);
    return EXIT_SUCCESS;
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kUsageFailure;
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "svcmgr-emulator: " << error.what() << '\n';
    return kFailure;
  }
}
