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
 * Driven by a main loop, on whose thread it lives, and never blocks. Peers of
 * other users are turned away; a peer that sends rubbish is disconnected, and so is
 * one that has not said who it is when the limit for that has passed, or that needs
 * memory that is not available. Every event may call any operation of the server but
 * its destruction.
 */
class RpcPortServer {
 public:
  using ConnectionId = std::uint64_t;

  struct Peer {
    std::string app_id;  ///< as the peer states it
    pid_t pid;
  };

  struct Events {
    std::function<bool(const Peer &)> accept;  ///< false: the peer is rejected
    std::function<void(ConnectionId, const Peer &)> connected;
    std::function<void(ConnectionId)> disconnected;
    std::function<void(ConnectionId, Parcel)> received;  ///< from the client's main port
  };

  /** Listens on the current device. Throws std::system_error. */
  RpcPortServer(MainLoop &loop, const std::string &app_id, const std::string &port_name,
                Events events);
  RpcPortServer(const RpcPortServer &) = delete;
  RpcPortServer &operator=(const RpcPortServer &) = delete;
  /** Ends every connection, without events, and removes the socket. */
  ~RpcPortServer();

  /**
   * Queues a parcel; an unknown connection is ignored. The connection ends when the parcel is too
   * long or there is no memory for it: the peer would wait for it without success.
   */
  void send(ConnectionId connection, Port port, const Parcel &parcel);
  /** Queues bytes that need not be a frame. */
  void send_raw(ConnectionId connection, Port port, const Bytes &bytes);
  /**
   * Stops listening, takes no more requests, and lets every peer see the end of its connection.
   * done is called, from the loop, once all have noticed, or after the limit. After that the
   * server serves nobody and is to be destroyed.
   */
  void close(std::chrono::milliseconds limit, std::function<void()> done);
  /** Ends a connection. What the peer takes at once of the queue was sent. */
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
  /** Sends what the peer takes at once, and has the loop report when it takes the rest. */
  void flush(Channel &channel);
  void drop(const std::shared_ptr<Channel> &channel);
  void end(ConnectionId connection, bool tell);
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
