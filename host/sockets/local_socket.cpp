#include "sockets/local_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "guard.h"
#include "sockets/wait_limits.h"

namespace korvane::host {

namespace {

constexpr int kBacklog = 4096;
constexpr std::size_t kReadSize = std::size_t{64} << 10;

UniqueFd new_socket() {
  UniqueFd socket(
      beyond_standard_streams(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
  if (!socket) fail(errno, "socket");
  return socket;
}

/**
 * Calls bind or connect with an address for the path. The folder is named
 * through a descriptor, since a path may be longer than an address.
 */
template <typename Call>
int with_address(const std::filesystem::path &path, Call call) {
  const UniqueFd folder(open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return -1;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const int length = std::snprintf(address.sun_path, sizeof(address.sun_path),
                                   "/proc/self/fd/%d/%s", folder.get(), path.filename().c_str());
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return call(reinterpret_cast<const sockaddr *>(&address), sizeof(address));
}

ucred peer_of(int socket) {
  ucred peer = {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  socklen_t size = sizeof(peer);
  getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return peer;
}

bool is_own_user(int socket) {
  return peer_of(socket).uid == geteuid();
}

/**
 * Waits until the socket is ready, the deadline expires, or the peer of the companion, if given,
 * has closed its end. Returns true when the socket is ready.
 */
bool wait_ready(int socket, short events, const Deadline &deadline, int companion = -1) {
  pollfd entries[] = {{socket, events, 0}, {companion, POLLRDHUP, 0}};
  int count = 0;
  do {
    count = poll(entries, std::size(entries), deadline.left_ms());
  } while (count < 0 && errno == EINTR);
  return count > 0 && entries[0].revents != 0;
}

/** Sends what the socket accepts at once, from a position on. Returns as send() does. */
ssize_t send_some(int socket, const Bytes &bytes, std::size_t from) {
  return send(socket, bytes.data() + from, bytes.size() - from, MSG_NOSIGNAL | MSG_DONTWAIT);
}

/** Sends everything. next_wait gives the deadline of each wait. Returns 0 or an errno value. */
template <typename NextWait>
int send_all(int socket, const Bytes &bytes, NextWait next_wait) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t size = send_some(socket, bytes, sent);
    if (size >= 0) {
      sent += static_cast<std::size_t>(size);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (!wait_ready(socket, POLLOUT, next_wait())) return ETIMEDOUT;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

ListenerPath::ListenerPath(std::filesystem::path path)
    : path_(std::move(path)), unlisted_(path_.parent_path() / ("." + path_.filename().string())) {}

UniqueFd ListenerPath::listen() const {
  UniqueFd socket = new_socket();
  // Peers must not find a socket that does not listen yet: they would take it for a stale one.
  unlink(unlisted_.c_str());
  const int bound = with_address(unlisted_, [&socket](const sockaddr *address, socklen_t size) {
    return bind(socket.get(), address, size);
  });
  if (bound != 0) fail(errno, "bind");
  if (chmod(unlisted_.c_str(), 0600) != 0) fail(errno, "chmod");
  if (::listen(socket.get(), kBacklog) != 0) fail(errno, "listen");
  return socket;
}

void ListenerPath::enlist() const {
  if (rename(unlisted_.c_str(), path_.c_str()) != 0) fail(errno, "rename");
}

void ListenerPath::remove() const noexcept {
  unlink(unlisted_.c_str());
  unlink(path_.c_str());
}

UniqueFd listen_at(const std::filesystem::path &path) {
  const ListenerPath listener(path);
  UniqueFd socket = listener.listen();
  listener.enlist();
  return socket;
}

UniqueFd connect_to(const std::filesystem::path &path) {
  UniqueFd socket = new_socket();
  const int connected = with_address(path, [&socket](const sockaddr *address, socklen_t size) {
    return connect(socket.get(), address, size);
  });
  if (connected != 0) fail(errno, "connect");
  if (!is_own_user(socket.get())) {
    errno = EACCES;
    fail(errno, "connect");
  }
  return socket;
}

UniqueFd accept_peer(int listener) {
  UniqueFd socket(
      beyond_standard_streams(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
  if (socket && !is_own_user(socket.get())) socket.reset();
  return socket;
}

bool peer_has_ended(int socket) {
  pollfd entry = {socket, POLLRDHUP, 0};
  return poll(&entry, 1, 0) == 1;
}

pid_t peer_process(int socket) {
  return peer_of(socket).pid;
}

ReadState read_available(int socket, FrameReader &reader) {
  std::uint8_t bytes[kReadSize];
  const ssize_t size = recv(socket, bytes, sizeof(bytes), MSG_DONTWAIT);
  if (size > 0) {
    reader.feed(bytes, static_cast<std::size_t>(size));
    return reader.broken() ? ReadState::kEnd : ReadState::kData;
  }
  const bool again = size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
  return again ? ReadState::kNothing : ReadState::kEnd;
}

bool await_frame(int socket, FrameReader &reader, int begin_timeout_ms, int companion) {
  Deadline deadline(begin_timeout_ms);
  bool has_begun = false;
  while (!reader.has_frame()) {
    if (reader.broken()) return false;
    if (!has_begun && !reader.empty()) {
      has_begun = true;
      deadline = Deadline(limits.frame);
    }
    const bool ready = wait_ready(socket, POLLIN, deadline, companion);
    // Reads in any case: data may have arrived just before the companion was closed.
    const ReadState state = read_available(socket, reader);
    const bool lost = state == ReadState::kEnd || (state == ReadState::kNothing && !ready);
    if (lost && !reader.has_frame()) return false;
  }
  return true;
}

std::optional<Bytes> read_frame(int socket, FrameReader &reader, int begin_timeout_ms) {
  if (!await_frame(socket, reader, begin_timeout_ms)) return std::nullopt;
  return reader.next();
}

void send_available(int socket, Bytes &bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t size = send_some(socket, bytes, sent);
    if (size < 0 && errno != EINTR) break;
    sent += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
  }
  bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(sent));
  if (bytes.empty()) bytes = Bytes();  // releases the memory of a long answer
}

int write_all(int socket, const Bytes &bytes, int stall_timeout_ms) {
  return send_all(socket, bytes, [=] { return Deadline(stall_timeout_ms); });
}

int write_all(int socket, const Bytes &bytes, const Deadline &deadline) {
  return send_all(socket, bytes, [&] { return deadline; });
}

int write_frame(int socket, const Bytes &payload, int stall_timeout_ms) {
  Bytes frame;
  return append_frame(frame, payload) ? write_all(socket, frame, stall_timeout_ms) : EMSGSIZE;
}

}  // namespace korvane::host
