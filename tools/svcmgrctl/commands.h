#ifndef KORVANE_SVCMGRCTL_COMMANDS_H_
#define KORVANE_SVCMGRCTL_COMMANDS_H_

#include <string>
#include <vector>

#include "session.h"

namespace korvane::svcmgrctl {

/** What the command line says to the commands. */
struct Arguments {
  bool watch = false;
  Deadline watch_end;
  bool no_wait = false;
  std::vector<std::string> agents;
  bool description = false;
  std::string category;
  std::string model;
  std::vector<std::string> models;  ///< each ID or ID@VERSION, with no part empty
};

/** Does what the command is for and tells the outcome; throws a Failure when it cannot be done. */
using Command = void (*)(Session &session, const Arguments &arguments);

void run_connect(Session &session, const Arguments &arguments);
void run_client_level(Session &session, const Arguments &arguments);
void run_agent_level(Session &session, const Arguments &arguments);
void run_license(Session &session, const Arguments &arguments);
void run_is_updating(Session &session, const Arguments &arguments);
void run_update(Session &session, const Arguments &arguments);
void run_watch(Session &session, const Arguments &arguments);

void run_models_list(Session &session, const Arguments &arguments);
void run_models_versions(Session &session, const Arguments &arguments);
void run_models_update(Session &session, const Arguments &arguments);
void run_models_uninstall(Session &session, const Arguments &arguments);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_COMMANDS_H_
