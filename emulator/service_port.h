/** The service manager's RPC port, including its injected faults. */
#ifndef KORVANE_EMULATOR_SERVICE_PORT_H_
#define KORVANE_EMULATOR_SERVICE_PORT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "faults.h"
#include "ports/rpc_port_server.h"
#include "trace.h"

namespace korvane::emulator {

/** The address of one connection; never reused for a later connection. */
struct Address {
  std::uint64_t opening = 0;  ///< which opening of the port, counted from 1
  host::RpcPortServer::ConnectionId connection = 0;
};

class ServicePort {
 public:
  using Peer = host::RpcPortServer::Peer;
  using Peers = std::map<host::RpcPortServer::ConnectionId, Peer>;
  using Received = std::function<void(const Address &, const Peer &, Parcel)>;

  ServicePort(host::MainLoop &loop, Faults &faults, const Trace &trace, Received received)
      : loop_(loop), faults_(faults), trace_(trace), received_(std::move(received)) {}

  void open();
  /**
   * Stops listening and closes every connection; calls done once all clients have closed theirs.
   */
  void close(std::function<void()> done);
  void drop_connections();
  const Peers &peers() const { return peers_; }

  /** Answers a synchronous method. The address of a closed connection is ignored. */
  void reply(const Address &address, const MethodInfo &info, const Parcel &answer);
  void send(const Address &address, DelegateEvent event);
  /** Sends to every connection. */
  void send_garbage(host::Port port, const host::Bytes &bytes);

 private:
  bool is_current(const Address &address) const;
  void send_stray_parcels(const Address &address);

  host::MainLoop &loop_;
  Faults &faults_;
  const Trace &trace_;
  const Received received_;
  std::uint64_t openings_ = 0;
  Peers peers_;
  std::unique_ptr<host::RpcPortServer> server_;
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_SERVICE_PORT_H_
