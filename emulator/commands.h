/** The control commands of a running emulator. */
#ifndef KORVANE_EMULATOR_COMMANDS_H_
#define KORVANE_EMULATOR_COMMANDS_H_

#include <optional>
#include <string>

#include "control.h"
#include "service.h"

namespace korvane::emulator {

/** The help text: every command, its arguments and its effect. */
std::string commands_help();

/** The help of one command; none when there is no such command. */
std::optional<std::string> command_help(const std::string &name);

/** The possible next words after these. */
Words next_words(const Words &words);

/** Describes an unknown command or a wrong number of arguments; none when both are correct. */
std::optional<std::string> usage_error(const Words &words);

/** Executes a command. Every error is reported as an outcome. */
void execute_command(Service &service, const Words &words, const Respond &respond);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_COMMANDS_H_
