/** How the project's programs read their command line and answer to it. */
#ifndef KORVANE_COMMAND_LINE_COMMAND_LINE_H_
#define KORVANE_COMMAND_LINE_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>

#include "command_line/words.h"

namespace korvane::command_line {

constexpr int kUsageStatus = 2;

/**
 * The help of a command shows the options of the program as a whole, too. What an option defaults
 * to, needs and excludes stands in its description.
 */
class Help : public CLI::Formatter {
 public:
  Help();
  std::string make_option_opts(const CLI::Option *option) const override;
  std::string make_option_desc(const CLI::Option *option) const override;
  std::string make_footer(const CLI::App *app) const override;
};

/**
 * Adds --version, the command "help" and the form of the help, and lets errors name the word that
 * is wrong. Called before commands are added, which inherit these.
 */
void begin_grammar(CLI::App &app);

/** Shows the help or version that was asked for, or what is wrong. Returns the exit status. */
int report(const CLI::App &app, const CLI::ParseError &error);

/**
 * The exit status of a program that has written its output: the given one, or, with a message, that
 * of a failure when the output could not be written.
 */
int end_output(const CLI::App &app, int status);

/**
 * Values for an option of a command or, when it is null, for the command's arguments; begun is the
 * unfinished word, which values need not match.
 */
using Values = std::function<Words(const CLI::App &command, const CLI::Option *option,
                                   const std::string &begun)>;

/** Among the values: the shell adds no space, because a word can go on. */
constexpr char kNoSpace[] = "-o nospace";

/**
 * Answers "PROGRAM --complete WORD...", which a shell asks with the words so far, the last of them
 * unfinished or empty: prints those that could stand in its place, one a line. A line that begins
 * with "-A" or "-o" holds options for the shell's compgen or compopt: options of type DIR take
 * directories, and an argument called COMMAND takes a program with its own arguments. False when
 * the command line is no such question; the application is used up by it.
 */
bool answer_completion(CLI::App &app, int argc, char **argv, const Values &values);

}  // namespace korvane::command_line

#endif  // KORVANE_COMMAND_LINE_COMMAND_LINE_H_
