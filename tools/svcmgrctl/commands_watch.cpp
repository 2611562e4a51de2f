#include "commands.h"

namespace korvane::svcmgrctl {

namespace {

/** Prints update and model events until it is destroyed. */
class StatusListener {
 public:
  explicit StatusListener(Session &session) : session_(session) {
    check(korvane_svcmgr_set_update_status_cb(handle_update, this));
    check(korvane_svcmgr_ai_register_status_cb(handle_model, this));
  }
  ~StatusListener() {
    korvane_svcmgr_unset_update_status_cb();
    korvane_svcmgr_ai_deregister_status_cb();
  }
  StatusListener(const StatusListener &) = delete;
  StatusListener &operator=(const StatusListener &) = delete;

 private:
  static void handle_update(korvane_svcmgr_update_status_e status, void *listener) {
    report(listener, "update", describe_update_status, status);
  }

  static void handle_model(int, korvane_svcmgr_ai_state_e state, void *listener) {
    report(listener, "model", describe_model_state, state);
  }

  static void report(void *listener, const char *kind, CodeText (*describe)(int), int code) {
    Session &session = static_cast<StatusListener *>(listener)->session_;
    session.guard([&] { session.output().event(kind, describe(code)); });
  }

  Session &session_;
};

/** Connects and prints every connection event until the watch ends. */
void watch_connection(Session &session, const std::optional<double> &seconds) {
  session.on_connection([&session](korvane_svcmgr_connection_state_e state, bool is_reported) {
    session.output().connection_event(state, is_reported);
  });
  session.catch_interruptions();
  session.connect();
  session.watch(seconds ? Deadline(*seconds) : Deadline());
  session.output().succeed("");
}

}  // namespace

void run_connect(Session &session, const Arguments &arguments) {
  if (arguments.watch) {
    watch_connection(session, arguments.watch_seconds);
    return;
  }
  session.connect();
  session.output().succeed("connected", {{"connected", true}});
}

void run_watch(Session &session, const Arguments &arguments) {
  const StatusListener listener(session);
  watch_connection(session, arguments.watch_seconds);
}

}  // namespace korvane::svcmgrctl
