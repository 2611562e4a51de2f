#ifndef KORVANE_SVCMGRCTL_COMMANDS_H_
#define KORVANE_SVCMGRCTL_COMMANDS_H_

#include <optional>
#include <string>

#include "command_line/words.h"
#include "session.h"

namespace korvane::svcmgrctl {

using command_line::Words;

/** The arguments of the commands. */
struct Arguments {
  bool watch = false;
  std::optional<double> watch_seconds;
  bool no_wait = false;
  Words agents;
  bool description = false;
  std::string category;
  std::string model;
  Words models;  ///< each ID or ID@VERSION, with no part empty
};

/** Executes a command and reports its outcome. Throws a Failure on error. */
using Command = void (*)(Session &session, const Arguments &arguments);

void run_connect(Session &session, const Arguments &arguments);
void run_client_level(Session &session, const Arguments &arguments);
void run_agent_level(Session &session, const Arguments &arguments);
void run_license(Session &session, const Arguments &arguments);
void run_is_updating(Session &session, const Arguments &arguments);
void run_update(Session &session, const Arguments &arguments);
void run_watch(Session &session, const Arguments &arguments);

/** The IDs of the models that the application can use. The session must be connected. */
Words usable_model_ids(Session &session);

/** Completions of a word: IDs, which a version may follow, or ID@VERSION. */
Words model_words(Session &session, const std::string &begun);

void run_models_list(Session &session, const Arguments &arguments);
void run_models_versions(Session &session, const Arguments &arguments);
void run_models_update(Session &session, const Arguments &arguments);
void run_models_uninstall(Session &session, const Arguments &arguments);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_COMMANDS_H_
