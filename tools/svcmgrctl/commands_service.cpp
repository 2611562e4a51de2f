#include <functional>
#include <optional>

#include "commands.h"
#include "device_directory.h"

namespace korvane::svcmgrctl {

namespace {

/** Prints the API level that a library function returns. */
void show_level(Session &session, int (*get_level)(int *)) {
  int level = 0;
  session.call([&] { return get_level(&level); });
  session.output().succeed(std::to_string(level), {{"level", level}});
}

/** Follows the update of agents that this session requested. */
class AgentUpdate {
 public:
  explicit AgentUpdate(Session &session) : session_(session) {
    check(korvane_svcmgr_set_update_status_cb(handle_status, this));
  }
  ~AgentUpdate() { korvane_svcmgr_unset_update_status_cb(); }
  AgentUpdate(const AgentUpdate &) = delete;
  AgentUpdate &operator=(const AgentUpdate &) = delete;

  /**
   * Update events are received without a connection, also while the service manager updates itself.
   */
  void wait() {
    session_.wait_for_end([this] { return has_completed_; }, Work::kAgentUpdate);
  }

 private:
  static void handle_status(korvane_svcmgr_update_status_e status, void *data) {
    AgentUpdate &update = *static_cast<AgentUpdate *>(data);
    update.session_.guard([&] { update.proceed(status); });
  }

  void proceed(korvane_svcmgr_update_status_e status) {
    const CodeText text = describe_update_status(status);
    session_.restart_time();
    session_.output().event("update", text);
    has_completed_ = status == SVCMGR_UPDATE_STATUS_COMPLETED;
    if (!has_completed_ && status != SVCMGR_UPDATE_STATUS_STARTED) throw Failure(text);
  }

  Session &session_;
  bool has_completed_ = false;
};

void request_update(Session &session, const std::vector<std::string> &agents) {
  svcmgr::AgentList list;
  for (const std::string &agent : agents) list.add(agent);
  try {
    session.call([&] {
      return agents.empty() ? korvane_svcmgr_request_update()
                            : korvane_svcmgr_request_update_with_list(list.get(), nullptr);
    });
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_NOT_CONNECTED) throw;
    throw Failure(
        SVCMGR_ERROR_NOT_CONNECTED,
        "the service manager did not accept the update: it answered with a result that has "
        "no error code");
  }
}

}  // namespace

void run_client_level(Session &session, const Arguments &) {
  try {
    show_level(session, korvane_svcmgr_get_client_api_level);
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_NOT_SUPPORTED) throw;
    throw Failure(SVCMGR_ERROR_NOT_SUPPORTED,
                  "no ELF file of the application states a client API level");
  }
}

void run_agent_level(Session &session, const Arguments &) {
  session.connect();
  show_level(session, korvane_svcmgr_get_agent_api_level);
}

void run_license(Session &session, const Arguments &) {
  session.connect();
  std::optional<std::string> text;
  session.call([&] {
    text = svcmgr::get_license_fulltext();
    return SVCMGR_ERROR_NONE;
  });
  if (!text) session.check_connection();  // without a connection, there is no text either
  session.output().succeed(text.value_or("There is no licence text."),
                           {{"license", text ? Json(*text) : Json()}});
}

void run_is_updating(Session &session, const Arguments &arguments) {
  // The library receives update events only while a callback is set.
  check(
      korvane_svcmgr_set_update_status_cb([](korvane_svcmgr_update_status_e, void *) {}, nullptr));
  session.connect();
  bool updating = false;
  session.watch(Deadline(arguments.watch_seconds.value_or(0)),
                [&] { return updating = svcmgr::is_being_updated(); });
  session.output().succeed(
      updating ? "yes" : "not known: no update has started, and an earlier start is not detected",
      {{"updating", updating}});
}

void run_update(Session &session, const Arguments &arguments) {
  const DeviceDirectory device = DeviceDirectory::current();
  for (const std::string &agent : arguments.agents) device.check_agent(agent);
  session.on_connection([&session](korvane_svcmgr_connection_state_e state, bool is_reported) {
    if (!is_reported) session.output().connection_event(state, is_reported);
  });
  session.connect();
  AgentUpdate update(session);
  request_update(session, arguments.agents);
  if (arguments.no_wait) {
    session.output().succeed("update requested");
    return;
  }
  update.wait();
  session.output().succeed("");
}

}  // namespace korvane::svcmgrctl
