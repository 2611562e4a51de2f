/** The service manager. */
#ifndef KORVANE_EMULATOR_SERVICE_H_
#define KORVANE_EMULATOR_SERVICE_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent_update.h"
#include "device/device.h"
#include "events.h"
#include "faults.h"
#include "json_file.h"
#include "loop/main_loop.h"
#include "model_jobs.h"
#include "service_port.h"
#include "service_state.h"
#include "trace.h"

namespace korvane::emulator {

/**
 * Serves every method from the state of the current device. Control commands trigger its updates,
 * restarts and faults. Lives on the thread of its loop.
 */
class Service {
 public:
  struct Options {
    std::chrono::milliseconds tick;  ///< between two steps of updates and jobs
    bool trace;
  };

  /**
   * Called when the service is back. After an error it has its previous state, and problem
   * describes the error.
   */
  using Back = std::function<void(const std::string &problem)>;

  Service(host::MainLoop &loop, const host::Device &device, const Options &options);
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service() = default;

  void listen() { port_.open(); }
  void announce(const std::string &key) { agent_status({{key, "announced"}}); }

  /**
   * Updates the service manager once or several times in a row. Each time it announces "Update",
   * closes its port, opens it again and announces "Launch". Throws std::runtime_error when the port
   * is already closed.
   */
  void update_itself(int rounds, Back back);
  /** Closes the port without an announcement, opens it again and announces "Launch". */
  void restart(Back back);
  void stop() { loop_.quit(); }
  /** Reverts what control commands have set: faults and the licence text. */
  void reset();

  Json status() const;
  Faults &faults() { return faults_; }
  ServiceState &state() { return state_; }
  Events &events() { return events_; }
  ServicePort &port() { return port_; }

 private:
  /** One or several periods with a closed port. */
  struct Absence {
    bool announced;
    int rounds;
    Back back;
    std::string problem = {};
    std::size_t clients = 0;      ///< number of clients before
    std::size_t subscribers = 0;  ///< number that received the announcement
    std::chrono::steady_clock::time_point deadline = {};
  };

  std::size_t agent_status(const EventPayload &payload) {
    return events_.publish_or_log(kAgentStatus, payload);
  }
  void be_away(Absence absence);
  void go_away();
  void come_back();
  /** Opens the port; tries again later while no descriptors are free. */
  void listen_again();
  void be_back();
  void await_clients();

  void serve(const Address &address, const ServicePort::Peer &peer, Parcel parcel);
  void answer(const Address &address, const ServicePort::Peer &peer, const Request &request);
  void answer_code(const Address &address, const Request &request, std::int32_t code);
  void answer_update(const Address &address, const ServicePort::Peer &peer, const Request &request);
  void answer_list(const Address &address, const Request &request);
  ModelList list_for(const Request &request, std::int32_t &result) const;
  void answer_job(const Address &address, const Request &request);

  host::MainLoop &loop_;
  const std::chrono::milliseconds tick_;
  const Trace trace_;
  Faults faults_;
  ServiceState state_;
  Events events_;
  ServicePort port_;
  AgentUpdate agent_update_;
  ModelJobs model_jobs_;
  std::optional<Absence> absence_;
  std::uint64_t requests_ = 0;
  std::uint64_t malformed_ = 0;
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_SERVICE_H_
