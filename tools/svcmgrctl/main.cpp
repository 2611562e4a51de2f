// A command line tool based on the client library of the service manager.

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "command_line/command_line.h"
#include "commands.h"
#include "device_directory.h"
#include "terminal.h"

namespace {

using namespace korvane::svcmgrctl;
namespace command_line = korvane::command_line;

constexpr double kPatienceOfCompletion = 1;
constexpr double kLongestTime = 1e6;

struct Settings {
  std::string device;
  std::string app;
  double timeout = 30;
  bool json = false;
  bool verbose = false;
  Arguments arguments;
  std::string command;  ///< the full command name
  Command run = nullptr;
};

const CLI::Validator kSeconds(
    [](std::string &text) -> std::string {
      double seconds = 0;
      const bool is_number = CLI::detail::lexical_cast(text, seconds);
      if (is_number && seconds >= 0 && seconds <= kLongestTime) return "";
      return "\"" + text + "\" is no number of seconds from 0 to 1000000";
    },
    "");

const CLI::Validator kNotEmpty(
    [](std::string &text) -> std::string { return text.empty() ? "it must not be empty" : ""; },
    "");

const CLI::Validator kModelWord(
    [](std::string &text) -> std::string {
      const std::size_t at = text.rfind('@');
      const bool is_whole = !text.empty() && at != 0 && at != text.size() - 1;
      return is_whole ? "" : "\"" + text + "\" is no ID or ID@VERSION";
    },
    "");

/** The command line grammar. Parsing fills the settings. */
class Grammar {
 public:
  explicit Grammar(Settings &settings)
      : settings_(settings),
        app_("Calls and watches the service manager of a device.", "svcmgrctl") {
    command_line::begin_grammar(app_);
    app_.fallthrough();
    app_.require_subcommand(1);
    define_options();
    define_service_commands();
    define_model_commands();
    app_.footer(
        "Exit status: 0 done, 1 failed, 2 bad usage, 130 or 143 interrupted.\n"
        "Options are valid before and after the command. \"svcmgrctl COMMAND --help\" describes a\n"
        "command. $KORVANE_LOG is the lowest level of the library's log that is written: debug,\n"
        "info, error or none. The default is none here, and error in other applications.");
  }

  CLI::App &app() { return app_; }

 private:
  void define_options() {
    app_.add_option("--device", settings_.device, "Device directory")
        ->type_name("DIR")
        ->envname("KORVANE_DEVICE");
    app_.add_option("--app", settings_.app, "Application to call as")
        ->type_name("ID")
        ->envname("KORVANE_APP_ID");
    app_.add_option("--timeout", settings_.timeout,
                    "Time limit for each answer, 0 for none; every report of an update\n"
                    "restarts it")
        ->type_name("SECONDS")
        ->default_str("30")
        ->check(kSeconds);
    app_.add_flag("--json", settings_.json, "Write JSON, one object per line");
    app_.add_flag("--verbose", settings_.verbose, "Write the whole log of the library");
  }

  CLI::App *define(CLI::App &parent, const std::string &name, const std::string &help,
                   Command run) {
    CLI::App *command = parent.add_subcommand(name, help);
    const std::string full_name = (&parent == &app_ ? "" : parent.get_name() + " ") + name;
    command->callback([this, full_name, run] {
      settings_.command = full_name;
      settings_.run = run;
    });
    return command;
  }

  CLI::Option *define_time(CLI::App *command, const char *name, const char *help) {
    return command->add_option(name, settings_.arguments.watch_seconds, help)
        ->type_name("SECONDS")
        ->check(kSeconds);
  }

  CLI::Option *define_watch_time(CLI::App *command) {
    return define_time(command, "--for", "End the watch after this time");
  }

  void define_service_commands() {
    Arguments &arguments = settings_.arguments;
    CLI::App *connect =
        define(app_, "connect", "Connect and disconnect, or watch the connection", run_connect);
    CLI::Option *watch =
        connect->add_flag("--watch", arguments.watch, "Show connection events until interrupted");
    define_watch_time(connect)->needs(watch);
    define(app_, "client-level", "Show the client API level of the application", run_client_level);
    define(app_, "agent-level", "Show the API level of the installed agent", run_agent_level);
    define(app_, "license", "Show the text of the agent's licence", run_license);
    CLI::App *update =
        define(app_, "update", "Update the given agents, or all, and wait for the end", run_update);
    update->add_option("AGENT", arguments.agents, "Package IDs of agents")->check(kNotEmpty);
    update->add_flag("--no-wait", arguments.no_wait, "Do not wait for the end of the update");
    CLI::App *is_updating =
        define(app_, "is-updating", "Show whether an update of agents or of the service starts",
               run_is_updating);
    is_updating->footer(
        "An update that started before is not detected: applications receive only the start.\n");
    define_time(is_updating, "--for", "Wait for a start, at most for this time")->default_str("0");
    CLI::App *all =
        define(app_, "watch", "Show events of updates, models and the connection", run_watch);
    all->footer(
        "The end of an update of agents that started before is not reported. Connection events\n"
        "that the library hides from applications, during an announced update of the service\n"
        "manager, are marked. The watch ends when the device directory is removed.\n");
    define_watch_time(all);
  }

  void define_model_commands() {
    Arguments &arguments = settings_.arguments;
    CLI::App *models = app_.add_subcommand("models", "List, update and uninstall AI models");
    models->require_subcommand(1);
    CLI::App *list =
        define(*models, "list", "List the models that the application can use", run_models_list);
    CLI::Option *category =
        list->add_option("--category", arguments.category, "Models of the agent with this category")
            ->type_name("C")
            ->check(kNotEmpty);
    list->add_flag("--description", arguments.description, "Show their descriptions")
        ->excludes(category);
    CLI::App *versions =
        define(*models, "versions", "List the versions of a model", run_models_versions);
    versions->add_option("ID", arguments.model, "The model")->required()->check(kNotEmpty);
    CLI::App *update =
        define(*models, "update", "Update models and show the progress", run_models_update);
    update
        ->add_option("ID[@VERSION]", arguments.models,
                     "The models; without a version, the newest one")
        ->required()
        ->check(kModelWord);
    CLI::App *uninstall = define(*models, "uninstall", "Uninstall models and show the progress",
                                 run_models_uninstall);
    uninstall->add_option("ID", arguments.models, "The models")->required()->check(kNotEmpty);
  }

  Settings &settings_;
  CLI::App app_;
};

/** Sets the device and the application ID that the platform uses. */
void choose_caller(const Settings &settings) {
  if (settings.device.empty()) throw CLI::RequiredError("--device DIR (or $KORVANE_DEVICE)");
  if (settings.app.empty()) {
    const auto installed = DeviceDirectory(settings.device).applications();
    throw CLI::RequiredError(
        "--app ID (or $KORVANE_APP_ID) is required; installed applications: " +
            (installed.empty() ? "none" : printable_line(command_line::listed(installed))),
        CLI::ExitCodes::RequiredError);
  }
  setenv("KORVANE_DEVICE", settings.device.c_str(), 1);
  setenv("KORVANE_APP_ID", settings.app.c_str(), 1);
  setenv("KORVANE_LOG", settings.verbose ? "debug" : "none", settings.verbose ? 1 : 0);
}

int run_command(const Settings &settings) {
  const Output output(settings.command, settings.json);
  try {
    DeviceDirectory::current().check_application(settings.app);
    Session session(output, settings.timeout > 0 ? Deadline(settings.timeout) : Deadline());
    settings.run(session, settings.arguments);
    return EXIT_SUCCESS;
  } catch (const Failure &failure) {
    output.fail(failure.text());
    return failure.exit_status();
  } catch (const std::system_error &error) {
    output.fail(describe_error(error.code().value()));
  } catch (const std::bad_alloc &) {
    output.fail(describe_error(SVCMGR_ERROR_OUT_OF_MEMORY));
  }
  return kFailureStatus;
}

/** Completion values from the device; none when they are not available immediately. */
command_line::Words existing_values(const Settings &settings, const CLI::App &command,
                                    const CLI::Option *option, const std::string &begun) try {
  const DeviceDirectory device(settings.device);
  if (option != nullptr) {
    return option->check_name("--app") ? device.applications() : command_line::Words();
  }
  if (command.get_parent() == nullptr) return {};
  if (command.get_parent()->get_parent() == nullptr) {
    return command.get_name() == "update" ? device.agents() : command_line::Words();
  }
  if (command.get_name() == "list") return {};
  choose_caller(settings);
  const Output output("--complete", settings.json);
  Session session(output, Deadline(kPatienceOfCompletion));
  session.connect();
  return command.get_name() == "update" ? model_words(session, begun) : usable_model_ids(session);
} catch (const std::exception &) {
  return {};
}

int run(int argc, char **argv) {
  Settings settings;
  Grammar grammar(settings);
  const auto values = [&](const CLI::App &command, const CLI::Option *option,
                          const std::string &begun) {
    return existing_values(settings, command, option, begun);
  };
  CLI::App &app = grammar.app();
  if (command_line::answer_completion(app, argc, argv, values)) return EXIT_SUCCESS;
  try {
    app.parse(argc, argv);
    choose_caller(settings);
  } catch (const CLI::ParseError &error) {
    return command_line::end_output(app, command_line::report(app, error));
  }
  return command_line::end_output(app, run_command(settings));
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_CTYPE, "C.UTF-8");  // for the widths of characters; all texts are UTF-8
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "svcmgrctl: " << error.what() << '\n';
    return kFailureStatus;
  }
}
