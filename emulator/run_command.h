/** Runs a service manager for the duration of one command. */
#ifndef KORVANE_EMULATOR_RUN_COMMAND_H_
#define KORVANE_EMULATOR_RUN_COMMAND_H_

#include <functional>
#include <optional>

#include "control.h"
#include "device/device.h"

namespace korvane::emulator {

struct CommandRun {
  /** The body of the service process; its result is the exit status. */
  std::function<int(const host::Device &)> serve;
  std::optional<host::Device> device;  ///< empty: a temporary sample device
  bool init;                           ///< whether to create the given device first
  Words command;
};

/**
 * Starts a service, waits until it prints its first byte, and runs the command with the device in
 * its environment. Signals are forwarded to the command. After the command has exited, the service
 * is ended; it is killed when it does not exit in time. Returns the command's exit status as a
 * shell reports it. Throws std::exception.
 */
int run_command(const CommandRun &run);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_RUN_COMMAND_H_
