/** A service manager for as long as one command runs. */
#ifndef KORVANE_EMULATOR_RUN_COMMAND_H_
#define KORVANE_EMULATOR_RUN_COMMAND_H_

#include <functional>
#include <optional>

#include "control.h"
#include "device/device.h"

namespace korvane::emulator {

struct CommandRun {
  /** What the service's process does; its result is the exit status. */
  std::function<int(const host::Device &)> serve;
  std::optional<host::Device> device;  ///< none: a sample device, which is removed at the end
  bool init;                           ///< whether a device that is given is to be made first
  Words command;
};

/**
 * Starts a service, waits for the first thing that it prints, and runs the command with the device
 * in its environment. Signals are passed on to the command. When it has ended the service is ended,
 * too: killed, when it does not end in time. Returns the command's exit status as a shell reports
 * it. Throws std::exception.
 */
int run_command(const CommandRun &run);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_RUN_COMMAND_H_
