/** The service side of RPC ports. */
#ifndef KORVANE_HOST_RPC_PORT_SERVER_H_
#define KORVANE_HOST_RPC_PORT_SERVER_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "loop/main_loop.h"
#include "loop/scoped_source.h"
#include "ports/parcel.h"
#include "ports/rpc_port_protocol.h"
#include "sockets/frame.h"
#include "sockets/listener.h"
#include "sockets/unique_fd.h"

namespace korvane::host {

/**
 * One RPC port of a service: accepts connections and exchanges parcels with them.
 *
 * The server lives on the thread of its main loop and never blocks. It rejects peers of other
 * users. It disconnects a peer that sends invalid data, that sends no hello within the limit, or
 * for which memory runs out. Event handlers may call every operation of the server, but must not
 * destroy it.
 */
class RpcPortServer {
 public:
  using ConnectionId = std::uint64_t;

  struct Peer {
    std::string app_id;  ///< as claimed by the peer
    pid_t pid;
  };

  struct Events {
    std::function<bool(const Peer &)> accept;  ///< returns false to reject the peer
    std::function<void(ConnectionId, const Peer &)> connected;
    std::function<void(ConnectionId)> disconnected;
    std::function<void(ConnectionId, Parcel)> received;  ///< from the client's main port
  };

  /** Listens on the current device. Throws std::system_error. */
  RpcPortServer(MainLoop &loop, const std::string &app_id, const std::string &port_name,
                Events events);
  RpcPortServer(const RpcPortServer &) = delete;
  RpcPortServer &operator=(const RpcPortServer &) = delete;
  /** Closes every connection without reporting events, and removes the socket. */
  ~RpcPortServer();

  /**
   * Queues a parcel; unknown connections are ignored. When the parcel is too long or memory runs
   * out, the connection is closed: the peer would wait for the parcel without success.
   */
  void send(ConnectionId connection, Port port, const Parcel &parcel);
  /** Queues raw bytes, which may be no valid frame. */
  void send_raw(ConnectionId connection, Port port, const Bytes &bytes);
  /**
   * Stops listening, ignores further requests, and shuts down every connection. Calls done from the
   * loop once all peers have closed their side, or after the limit. The server cannot be used
   * afterwards and is to be destroyed.
   */
  void close(std::chrono::milliseconds limit, std::function<void()> done);
  /** Closes a connection, after sending as much of the queue as the socket accepts at once. */
  void disconnect(ConnectionId connection);
  void disconnect_all();
  std::vector<ConnectionId> connections() const;

 private:
  struct Channel;
  struct Connection;

  void stop_listening();
  void all_closed();
  void accept(UniqueFd socket);
  void serve(const std::shared_ptr<Channel> &channel, std::uint32_t epoll_events);
  void read(const std::shared_ptr<Channel> &channel);
  void greet(const std::shared_ptr<Channel> &channel, const Hello &hello);
  void open(const std::shared_ptr<Channel> &main, const std::shared_ptr<Channel> &callback,
            const Peer &peer);
  /** Sends what the socket accepts at once; the loop sends the rest when there is room. */
  void flush(Channel &channel);
  void drop(const std::shared_ptr<Channel> &channel);
  void end(ConnectionId connection, bool report);
  Channel *find(ConnectionId connection, Port port);

  MainLoop &loop_;
  const Events events_;
  std::unique_ptr<Listener> listener_;
  bool closing_ = false;
  std::function<void()> closed_;
  ScopedTimer closing_limit_;
  ConnectionId next_connection_ = 1;
  std::set<std::shared_ptr<Channel>> waiting_;  ///< not paired yet
  std::map<ConnectionId, Connection> connections_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_RPC_PORT_SERVER_H_
