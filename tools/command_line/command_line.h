/** How the project's programs read their command line and answer to it. */
#ifndef KORVANE_COMMAND_LINE_COMMAND_LINE_H_
#define KORVANE_COMMAND_LINE_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>

#include "command_line/words.h"

namespace korvane::command_line {

constexpr int kFailureStatus = 1;
constexpr int kUsageStatus = 2;

/** The help of a command shows the options of the program as a whole, too. */
class Help : public CLI::Formatter {
 public:
  Help() { column_width(34); }
  std::string make_footer(const CLI::App *app) const override;
};

/**
 * Adds --version and the form of the help, and lets errors name the word that is wrong. Called
 * before commands are added, which inherit these.
 */
void begin_grammar(CLI::App &app);

/** The exit status: failure, with a message, when standard output could not be written. */
int finish_output(const std::string &program, int status);

/** Shows the help or version that was asked for, or what is wrong. Returns the exit status. */
int report(const CLI::App &app, const CLI::ParseError &error);

/** Values for an option of a command or, when it is null, for the command's arguments. */
using Values = std::function<Words(const CLI::App &command, const CLI::Option *option)>;

/**
 * Answers "PROGRAM --complete WORD...", which a shell asks with the words so far, the last of them
 * unfinished or empty: prints those that could stand in its place, one a line. False when the
 * command line is no such question; the application is used up by it.
 */
bool answer_completion(CLI::App &app, int argc, char **argv, const Values &values);

}  // namespace korvane::command_line

#endif  // KORVANE_COMMAND_LINE_COMMAND_LINE_H_
