#include <functional>
#include <optional>

#include "commands.h"
#include "handles.h"

namespace korvane::svcmgrctl {

namespace {

/** Tells the API level that a function of the library stores. */
void show_level(Session &session, int (*get_level)(int *)) {
  int level = 0;
  session.call([&] { return get_level(&level); });
  session.output().succeed(std::to_string(level), {{"level", level}});
}

/** How the update of agents goes that this session asked for. */
class AgentUpdate {
 public:
  explicit AgentUpdate(Session &session) : session_(session) {
    check(korvane_svcmgr_set_update_status_cb(handle_status, this));
  }
  ~AgentUpdate() { korvane_svcmgr_unset_update_status_cb(); }
  AgentUpdate(const AgentUpdate &) = delete;
  AgentUpdate &operator=(const AgentUpdate &) = delete;

  void wait() {
    session_.wait_until([this] { return has_completed_; });
  }

 private:
  static void handle_status(korvane_svcmgr_update_status_e status, void *data) {
    AgentUpdate &update = *static_cast<AgentUpdate *>(data);
    update.session_.guard([&] { update.proceed(status); });
  }

  void proceed(korvane_svcmgr_update_status_e status) {
    const CodeText text = describe_update_status(status);
    session_.output().event("update", text);
    has_completed_ = status == SVCMGR_UPDATE_STATUS_COMPLETED;
    if (!has_completed_ && status != SVCMGR_UPDATE_STATUS_STARTED) throw Failure(text);
  }

  Session &session_;
  bool has_completed_ = false;
};

void request_update(Session &session, const std::vector<std::string> &agents) {
  if (agents.empty()) {
    session.call(korvane_svcmgr_request_update);
    return;
  }
  const auto list = make<AgentList>(korvane_svcmgr_agent_list_create);
  for (const std::string &agent : agents) {
    check(korvane_svcmgr_agent_list_add(list.get(), agent.c_str()));
  }
  session.call([&] { return korvane_svcmgr_request_update_with_list(list.get(), nullptr); });
}

}  // namespace

void run_client_level(Session &session, const Arguments &) {
  show_level(session, korvane_svcmgr_get_client_api_level);
}

void run_agent_level(Session &session, const Arguments &) {
  session.connect();
  show_level(session, korvane_svcmgr_get_agent_api_level);
}

void run_license(Session &session, const Arguments &) {
  session.connect();
  char *text = nullptr;
  session.call([&] { return korvane_svcmgr_get_license_fulltext(&text); });
  const HeapText owner(text);
  if (text == nullptr) {
    session.output().succeed("There is no licence text.", {{"license", nullptr}});
  } else {
    session.output().succeed(text, {{"license", text}});
  }
}

void run_is_updating(Session &session, const Arguments &) {
  session.connect();
  bool updating = false;
  session.call([&] { return korvane_svcmgr_is_being_updated(&updating); });
  session.output().succeed(updating ? "yes" : "no", {{"updating", updating}});
}

void run_update(Session &session, const Arguments &arguments) {
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
