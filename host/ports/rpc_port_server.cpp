#include "ports/rpc_port_server.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include "events/event_publisher.h"
#include "guard.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

namespace korvane::host {

namespace {

/** A peer with more unsent data than this is disconnected. */
constexpr std::size_t kMaxQueued = std::size_t{64} << 20;
/** Well above the length of any application ID. */
constexpr std::size_t kMaxName = 1024;

constexpr std::uint32_t kInput = EPOLLIN | EPOLLRDHUP;
constexpr std::uint32_t kOutput = EPOLLOUT;

}  // namespace

/**
 * One accepted socket. It waits for its hello and its counterpart, and is then half of a
 * connection.
 */
struct RpcPortServer::Channel {
  UniqueFd socket;
  ScopedSource source;
  FrameReader reader;
  Bytes queued;
  bool awaits_room = false;  ///< the loop watches for room to send more of the queue
  ScopedTimer patience;      ///< while waiting
  std::optional<Hello> hello;
  ConnectionId connection = 0;  ///< 0 while waiting
};

struct RpcPortServer::Connection {
  std::shared_ptr<Channel> main;
  std::shared_ptr<Channel> callback;
};

RpcPortServer::RpcPortServer(MainLoop &loop, const std::string &app_id,
                             const std::string &port_name, Events events)
    : loop_(loop),
      events_(std::move(events)),
      listener_(
          std::make_unique<Listener>(loop, rpc_socket_path(Device::current(), app_id, port_name),
                                     [this](UniqueFd socket) { accept(std::move(socket)); })) {}

RpcPortServer::~RpcPortServer() {
  while (!connections_.empty()) end(connections_.begin()->first, false);
}

void RpcPortServer::stop_listening() {
  listener_.reset();
  waiting_.clear();
}

void RpcPortServer::close(std::chrono::milliseconds limit, std::function<void()> done) {
  stop_listening();
  closing_ = true;
  closed_ = std::move(done);
  for (const auto &[id, connection] : connections_) {
    shutdown(connection.main->socket.get(), SHUT_WR);
    shutdown(connection.callback->socket.get(), SHUT_WR);
  }
  begin_event_run();
  closing_limit_ = ScopedTimer(loop_, connections_.empty() ? std::chrono::milliseconds() : limit,
                               [this] { all_closed(); });
}

void RpcPortServer::all_closed() {
  while (!connections_.empty()) end(connections_.begin()->first, false);
  // Must be last: done may destroy the server.
  if (const auto done = std::exchange(closed_, nullptr)) done();
}

void RpcPortServer::accept(UniqueFd socket) {
  auto channel = std::make_shared<Channel>();
  channel->socket = std::move(socket);
  const std::weak_ptr<Channel> weak = channel;
  channel->patience = ScopedTimer(loop_, std::chrono::milliseconds(limits.greeting), [this, weak] {
    if (const auto self = weak.lock()) drop(self);
  });
  channel->source =
      ScopedSource(loop_, channel->socket.get(), kInput, [this, weak](std::uint32_t epoll_events) {
        if (const auto self = weak.lock()) serve(self, epoll_events);
      });
  waiting_.insert(channel);
}

void RpcPortServer::serve(const std::shared_ptr<Channel> &channel, std::uint32_t epoll_events) {
  const int error = guarded([&] {
    if ((epoll_events & kOutput) != 0) flush(*channel);
    if ((epoll_events & ~kOutput) != 0) read(channel);
    return 0;
  });
  if (error != 0) drop(channel);
}

void RpcPortServer::read(const std::shared_ptr<Channel> &channel) {
  const ReadState state = read_available(channel->socket.get(), channel->reader);
  while (auto frame = channel->reader.next()) {
    Parcel parcel(std::move(*frame));
    if (!channel->hello) {
      channel->hello = Hello::decode(std::move(parcel));
      if (!channel->hello || channel->hello->app_id.size() > kMaxName) {
        drop(channel);
        return;
      }
      greet(channel, *channel->hello);
    } else if (channel->connection != 0 && channel->hello->port == Port::kMain && !closing_) {
      events_.received(channel->connection, std::move(parcel));
    }
    if (!channel->socket) return;
  }
  if (state == ReadState::kEnd || channel->reader.broken()) drop(channel);
}

void RpcPortServer::greet(const std::shared_ptr<Channel> &channel, const Hello &hello) {
  const pid_t pid = peer_process(channel->socket.get());
  for (const auto &other : waiting_) {
    if (other == channel || !other->hello || other->hello->token != hello.token ||
        other->hello->port == hello.port || peer_process(other->socket.get()) != pid) {
      continue;
    }
    const bool is_main = hello.port == Port::kMain;
    const auto counterpart = other;
    open(is_main ? channel : counterpart, is_main ? counterpart : channel, {hello.app_id, pid});
    return;
  }
}

void RpcPortServer::open(const std::shared_ptr<Channel> &main,
                         const std::shared_ptr<Channel> &callback, const Peer &peer) {
  const bool accepted = events_.accept(peer);
  Parcel answer;
  answer.write_int32(accepted ? kAccepted : kRejected);
  const ConnectionId id = next_connection_++;
  connections_.emplace(id, Connection{main, callback});
  for (const auto &channel : {main, callback}) {
    waiting_.erase(channel);
    channel->patience.reset();
    channel->connection = id;
  }
  send(id, Port::kMain, answer);
  if (accepted) {
    events_.connected(id, peer);
  } else {
    end(id, false);
  }
}

void RpcPortServer::send(ConnectionId connection, Port port, const Parcel &parcel) {
  Channel *channel = find(connection, port);
  if (channel == nullptr) return;
  const int error =
      guarded([&] { return append_frame(channel->queued, parcel.bytes()) ? 0 : -EMSGSIZE; });
  if (error != 0) shutdown(channel->socket.get(), SHUT_RDWR);
  flush(*channel);
}

void RpcPortServer::send_raw(ConnectionId connection, Port port, const Bytes &bytes) {
  Channel *channel = find(connection, port);
  if (channel == nullptr) return;
  channel->queued.insert(channel->queued.end(), bytes.begin(), bytes.end());
  flush(*channel);
}

void RpcPortServer::flush(Channel &channel) {
  send_available(channel.socket.get(), channel.queued);
  if (channel.queued.size() > kMaxQueued) {
    shutdown(channel.socket.get(), SHUT_RDWR);
    channel.queued.clear();
  }
  if (channel.queued.empty() == !channel.awaits_room) return;
  channel.awaits_room = !channel.queued.empty();
  channel.source.change_events(kInput | (channel.awaits_room ? kOutput : 0U));
}

void RpcPortServer::disconnect(ConnectionId connection) {
  end(connection, true);
}

void RpcPortServer::disconnect_all() {
  for (const ConnectionId id : connections()) disconnect(id);
  begin_event_run();
}

std::vector<RpcPortServer::ConnectionId> RpcPortServer::connections() const {
  std::vector<ConnectionId> ids;
  for (const auto &[id, connection] : connections_) ids.push_back(id);
  return ids;
}

void RpcPortServer::drop(const std::shared_ptr<Channel> &channel) {
  if (channel->connection != 0) {
    end(channel->connection, true);
    return;
  }
  channel->source.reset();
  channel->socket.reset();
  waiting_.erase(channel);
}

void RpcPortServer::end(ConnectionId connection, bool report) {
  const auto entry = connections_.find(connection);
  if (entry == connections_.end()) return;
  const Connection ended = std::move(entry->second);
  connections_.erase(entry);
  for (const auto &channel : {ended.main, ended.callback}) {
    channel->source.reset();
    channel->socket.reset();
  }
  if (report) events_.disconnected(connection);
  if (report && closed_ && connections_.empty()) {
    closing_limit_ = ScopedTimer(loop_, {}, [this] { all_closed(); });
  }
}

RpcPortServer::Channel *RpcPortServer::find(ConnectionId connection, Port port) {
  const auto entry = connections_.find(connection);
  if (entry == connections_.end()) return nullptr;
  return port == Port::kMain ? entry->second.main.get() : entry->second.callback.get();
}

}  // namespace korvane::host
