#include "command_line/command_line.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>
#include <string_view>

namespace korvane::command_line {

namespace {

constexpr char kHelp[] = "help";
constexpr char kDirectory[] = "DIR";
constexpr char kProgram[] = "COMMAND";
constexpr char kAskForDirectories[] = "-A directory";
constexpr char kAskForPrograms[] = "-A command";
constexpr char kAskForFiles[] = "-A file";

/** The innermost command that was given. */
const CLI::App &given_command(const CLI::App &app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : given_command(*commands.back());
}

/** The full name of a command, including its parent commands. */
std::string full_name(const CLI::App &command) {
  const CLI::App *parent = command.get_parent();
  return (parent == nullptr ? "" : full_name(*parent) + " ") + command.get_name();
}

Words command_names(const CLI::App &command) {
  Words names;
  for (const CLI::App *inner : command.get_subcommands(nullptr)) names.push_back(inner->get_name());
  return names;
}

/** The options that are valid after a command: its own and those of its parent commands. */
std::vector<const CLI::Option *> options_after(const CLI::App &command) {
  std::vector<const CLI::Option *> options;
  for (const CLI::App *app = &command; app != nullptr;
       app = app->get_fallthrough() ? app->get_parent() : nullptr) {
    for (const CLI::Option *option : app->get_options()) options.push_back(option);
  }
  return options;
}

Words option_names(const CLI::App &command) {
  Words names;
  for (const CLI::Option *option : options_after(command)) {
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

/** Describes the first word that was not parsed; empty when all words were parsed. */
std::string unknown_word(const CLI::App &app, const CLI::App &command) {
  if (command.get_prefix_command()) return "";
  const Words words = app.remaining(true);
  const auto found = std::find_if(words.begin(), words.end(),
                                  [](const std::string &word) { return word != "--"; });
  if (found == words.end()) return "";
  if (found->size() > 1 && found->front() == '-') {
    const std::string name = found->substr(0, found->find('='));
    return "unknown option \"" + name + "\"" + suggestion(name, option_names(command));
  }
  const Words commands = command_names(command);
  if (commands.empty()) return "unexpected word \"" + *found + "\"";
  return "unknown command \"" + *found + "\"" + suggestion(*found, commands);
}

std::string what_is_wrong(const CLI::App &app, const CLI::App &command, const CLI::Error &error) {
  std::string unknown = unknown_word(app, command);
  if (!unknown.empty()) return unknown;
  const bool lacks_command = command.get_require_subcommand_min() > 0 &&
                             dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
  return lacks_command ? "no command; choose one of " + listed(command_names(command))
                       : error.what();
}

std::string error_message(const CLI::App &app, const CLI::Error &error) {
  const CLI::App &command = given_command(app);
  return app.get_name() + ": " + what_is_wrong(app, command, error) + "\nRun \"" +
         full_name(command) + " --help\" for more.\n";
}

/** Adds "help COMMAND...", which equals "COMMAND... --help". */
void define_help(CLI::App &app) {
  CLI::App *help = app.add_subcommand(kHelp, "Show the help of a command");
  help->prefix_command();
  help->callback([&app, help] {
    Words words = help->remaining();
    words.erase(std::remove(words.begin(), words.end(), "--"), words.end());
    words.push_back("--help");
    app.parse(Words(words.rbegin(), words.rend()));
  });
}

std::string joined_names(const std::set<CLI::Option *> &options) {
  Words names;
  for (const CLI::Option *option : options) names.push_back(option->get_name());
  return listed(names);
}

/** The innermost command of an incomplete line. Parse errors are expected. */
const CLI::App &command_of(CLI::App &app, const Words &words) {
  try {
    app.parse(Words(words.rbegin(), words.rend()));
  } catch (const CLI::Error &) {
  }
  return given_command(app);
}

/** The option of a command that this word names, if it takes a value; otherwise null. */
const CLI::Option *waiting_option(const CLI::App &command, const std::string &word) {
  const auto options = options_after(command);
  const auto found = std::find_if(options.begin(), options.end(), [&](const CLI::Option *option) {
    return option->nonpositional() && option->get_items_expected_max() > 0 &&
           option->check_name(word);
  });
  return found == options.end() ? nullptr : *found;
}

/** The values of an option. Options of type DIR take directories. */
Words values_of(const CLI::App &command, const CLI::Option *option, const std::string &begun,
                const Values &values) {
  return option->get_type_name() == kDirectory ? Words{kAskForDirectories}
                                               : values(command, option, begun);
}

/** Completes a command whose arguments are the command line of another program. */
Words words_of_other_program(const CLI::Option &argument) {
  return {argument.count() == 0 ? kAskForPrograms : kAskForFiles};
}

/** The possible next words, or instructions for the shell to complete them. */
Words next_words(CLI::App &app, Words words, const std::string &begun, const Values &values) {
  if (!words.empty() && words.front() == kHelp) words.erase(words.begin());
  const bool options_ended = std::find(words.begin(), words.end(), "--") != words.end();
  if (!words.empty() && !options_ended) {
    const std::string last = words.back();
    words.pop_back();
    const CLI::App &command = command_of(app, words);
    if (const CLI::Option *option = waiting_option(command, last)) {
      return values_of(command, option, begun, values);
    }
    words.push_back(last);
  }
  const CLI::App &command = command_of(app, words);
  if (!options_ended && begun.rfind('-', 0) == 0) return option_names(command);
  if (const CLI::Option *other = command.get_option_no_throw(kProgram)) {
    return words_of_other_program(*other);
  }
  Words next = command_names(command);
  for (const std::string &value : values(command, nullptr, begun)) next.push_back(value);
  return next;
}

/** Other characters can have a special meaning in a shell. */
bool is_plain(const std::string &word) {
  return std::all_of(word.begin(), word.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || std::strchr("._-+/@", letter) != nullptr;
  });
}

bool is_request_to_shell(const std::string &word) {
  return word == kAskForDirectories || word == kAskForPrograms || word == kAskForFiles ||
         word == kNoSpace;
}

}  // namespace

Help::Help() {
  column_width(34);
  label("OPTIONS", "OPTION...");
  label("Positionals", "Arguments");
  label("SUBCOMMAND", "COMMAND");
}

std::string Help::make_option_opts(const CLI::Option *option) const {
  if (option->get_positional() || option->get_type_size() == 0) return "";
  const std::string type = option->get_type_name();  // the value checks follow after a colon
  return " " + type.substr(0, type.find(':'));
}

std::string Help::make_option_desc(const CLI::Option *option) const {
  std::string text = option->get_description();
  const std::string variable = option->get_envname();
  const std::string standard = variable.empty() ? option->get_default_str() : "$" + variable;
  if (!option->get_needs().empty()) text += ", only with " + joined_names(option->get_needs());
  if (!option->get_excludes().empty()) {
    text += ", not with " + joined_names(option->get_excludes());
  }
  return standard.empty() ? text : text + " (default: " + standard + ")";
}

std::string Help::make_footer(const CLI::App *app) const {
  std::string own = CLI::Formatter::make_footer(app);
  const CLI::App *program = app;
  while (program->get_fallthrough() && program->get_parent() != nullptr) {
    program = program->get_parent();
  }
  if (program == app) return own;
  const auto is_common = [program](const CLI::Option *option) {
    return option->nonpositional() && option != program->get_help_ptr() &&
           option != program->get_version_ptr();
  };
  const auto options = program->get_options(is_common);
  return make_group("Common options", false, options).substr(1) + (own.empty() ? "" : "\n" + own);
}

void begin_grammar(CLI::App &app) {
  app.formatter(std::make_shared<Help>());
  app.group("Commands");
  app.require_subcommand(0, 1);
  app.set_help_flag("-h,--help", "Show this help and exit");
  app.set_version_flag("-V,--version", app.get_name() + " " + KORVANE_VERSION,
                       "Show the version and exit");
  define_help(app);
}

int report(const CLI::App &app, const CLI::ParseError &error) {
  const bool shows_help = error.get_exit_code() == EXIT_SUCCESS;
  if (shows_help && unknown_word(app, given_command(app)).empty()) return app.exit(error);
  std::cerr << error_message(app, error);
  return kUsageStatus;
}

int end_output(const CLI::App &app, int status) {
  std::cout.flush();
  std::fflush(stdout);
  if (std::cout.good() && std::ferror(stdout) == 0) return status;
  std::cerr << app.get_name() << ": the output could not be written\n";
  return EXIT_FAILURE;
}

bool answer_completion(CLI::App &app, int argc, char **argv, const Values &values) {
  if (argc < 3 || std::string_view(argv[1]) != "--complete") return false;
  const Words words(argv + 2, argv + argc - 1);
  const std::string begun = argv[argc - 1];
  for (const std::string &word : next_words(app, words, begun, values)) {
    const bool fits = word.rfind(begun, 0) == 0 && is_plain(word);
    if (fits || is_request_to_shell(word)) std::cout << word << '\n';
  }
  return true;
}

}  // namespace korvane::command_line
