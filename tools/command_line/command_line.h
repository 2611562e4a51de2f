/** Parsing, help and completion shared by the programs of the project. */
#ifndef KORVANE_COMMAND_LINE_COMMAND_LINE_H_
#define KORVANE_COMMAND_LINE_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>

#include "command_line/words.h"

namespace korvane::command_line {

constexpr int kUsageStatus = 2;

/**
 * Also shows the options of the whole program in the help of a command. Defaults and required or
 * excluded options are part of an option's description.
 */
class Help : public CLI::Formatter {
 public:
  Help();
  std::string make_option_opts(const CLI::Option *option) const override;
  std::string make_option_desc(const CLI::Option *option) const override;
  std::string make_footer(const CLI::App *app) const override;
};

/**
 * Adds --version and the command "help", sets the help format, and makes errors name the invalid
 * word. Must be called before commands are added, since these inherit the settings.
 */
void begin_grammar(CLI::App &app);

/** Prints the requested help or version, or the error. Returns the exit status. */
int report(const CLI::App &app, const CLI::ParseError &error);

/**
 * Flushes the output and returns the exit status. When the output could not be written, prints a
 * message and returns a failure instead of the given status.
 */
int end_output(const CLI::App &app, int status);

/**
 * Returns the values for an option of a command or, when option is null, for the command's
 * arguments. begun is the incomplete word; values that do not match it are filtered out later.
 */
using Values = std::function<Words(const CLI::App &command, const CLI::Option *option,
                                   const std::string &begun)>;

/** An extra value: the shell adds no space, because the word can be continued. */
constexpr char kNoSpace[] = "-o nospace";

/**
 * Handles "PROGRAM --complete WORD...". The shell passes the words so far; the last one is
 * incomplete or empty. Prints the possible completions, one per line. A line that begins with "-A"
 * or "-o" is an option for the shell's compgen or compopt: options of type DIR take directories,
 * and an argument called COMMAND takes a program and its arguments. Returns false when the command
 * line is no such request. The application cannot be parsed again afterwards.
 */
bool answer_completion(CLI::App &app, int argc, char **argv, const Values &values);

}  // namespace korvane::command_line

#endif  // KORVANE_COMMAND_LINE_COMMAND_LINE_H_
