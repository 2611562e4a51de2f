/** What a running emulator can be told to do. */
#ifndef KORVANE_EMULATOR_COMMANDS_H_
#define KORVANE_EMULATOR_COMMANDS_H_

#include <optional>
#include <string>

#include "control.h"
#include "service.h"

namespace korvane::emulator {

/** Every command, its arguments and what it does. */
std::string commands_help();

/** What one command does and takes; none when there is no such command. */
std::optional<std::string> command_help(const std::string &name);

/** The words that may follow these. */
Words next_words(const Words &words);

/** What is wrong with the command or the number of its arguments, if anything. */
std::optional<std::string> usage_error(const Words &words);

/** Failures, of whatever kind, are outcomes. */
void execute_command(Service &service, const Words &words, const Respond &respond);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_COMMANDS_H_
