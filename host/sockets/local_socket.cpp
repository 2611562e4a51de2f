#include "sockets/local_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <system_error>

#include "sockets/little_endian.h"
#include "sockets/wait_limits.h"

namespace korvane::host {

namespace {

constexpr int kBacklog = 4096;

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd new_socket() {
  UniqueFd socket(
      beyond_standard_streams(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
  if (!socket) fail("socket");
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
 * Waits until the socket is ready, the time is up (-1: no limit), or the peer of the companion, if
 * there is one, has gone.
 */
bool wait_ready(int socket, short events, int timeout_ms, int companion = -1) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  int left = timeout_ms;
  for (;;) {
    pollfd entries[] = {{socket, events, 0}, {companion, POLLRDHUP, 0}};
    const int count = poll(entries, std::size(entries), left);
    if (count > 0) return entries[0].revents != 0;
    if (count == 0 || errno != EINTR) return false;
    if (timeout_ms >= 0) {
      left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                  deadline - std::chrono::steady_clock::now())
                                  .count());
      if (left < 0) return false;
    }
  }
}

/** Sends all parts, of which it moves the beginnings; 0 or an errno value. */
int write_parts(int socket, iovec *parts, std::size_t count, int stall_timeout_ms) {
  while (count > 0) {
    if (parts->iov_len == 0) {
      ++parts;
      --count;
      continue;
    }
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    const ssize_t size = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) return errno;
      if (!wait_ready(socket, POLLOUT, stall_timeout_ms)) return ETIMEDOUT;
    }
    auto left = static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    for (iovec *part = parts; left > 0; ++part) {
      const std::size_t sent = std::min(left, part->iov_len);
      part->iov_base = static_cast<std::uint8_t *>(part->iov_base) + sent;
      part->iov_len -= sent;
      left -= sent;
    }
  }
  return 0;
}

iovec part_of(const std::uint8_t *bytes, std::size_t size) {
  return {const_cast<std::uint8_t *>(bytes), size};
}

}  // namespace

ListenerPath::ListenerPath(std::filesystem::path path)
    : path_(std::move(path)), unlisted_(path_.parent_path() / ("." + path_.filename().string())) {}

UniqueFd ListenerPath::listen() const {
  UniqueFd socket = new_socket();
  // Nobody may meet a socket that does not listen yet: it would pass for one whose owner died.
  unlink(unlisted_.c_str());
  const int bound = with_address(unlisted_, [&socket](const sockaddr *address, socklen_t size) {
    return bind(socket.get(), address, size);
  });
  if (bound != 0) fail("bind");
  if (chmod(unlisted_.c_str(), 0600) != 0) fail("chmod");
  if (::listen(socket.get(), kBacklog) != 0) fail("listen");
  return socket;
}

void ListenerPath::enlist() const {
  if (rename(unlisted_.c_str(), path_.c_str()) != 0) fail("rename");
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
  if (connected != 0) fail("connect");
  if (!is_own_user(socket.get())) {
    errno = EACCES;
    fail("connect");
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
  const FrameReader::Room room = reader.room();
  const ssize_t size = recv(socket, room.bytes, room.size, MSG_DONTWAIT);
  if (size > 0) {
    return reader.take(static_cast<std::size_t>(size)) ? ReadState::kData : ReadState::kEnd;
  }
  const bool again = size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
  return again ? ReadState::kNothing : ReadState::kEnd;
}

bool await_frame(int socket, FrameReader &reader, int begin_timeout_ms, int companion) {
  std::optional<std::chrono::steady_clock::time_point> deadline;
  while (!reader.has_frame()) {
    if (reader.broken()) return false;
    if (reader.in_frame() && !deadline) {
      deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limits.frame);
    }
    int timeout = begin_timeout_ms;
    if (deadline) {
      timeout = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     *deadline - std::chrono::steady_clock::now())
                                     .count());
      if (timeout < 0) return false;
    }
    const bool ready = wait_ready(socket, POLLIN, timeout, companion);
    // What came just before the companion ended is taken all the same.
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

int write_all(int socket, const Bytes &bytes, int stall_timeout_ms) {
  iovec part = part_of(bytes.data(), bytes.size());
  return write_parts(socket, &part, 1, stall_timeout_ms);
}

int write_frame(int socket, const Bytes &payload, int stall_timeout_ms) {
  if (payload.size() > kMaxFrameSize) return EMSGSIZE;
  std::uint8_t header[kFrameHeaderSize];
  store_u32(header, static_cast<std::uint32_t>(payload.size()));
  iovec parts[] = {part_of(header, sizeof(header)), part_of(payload.data(), payload.size())};
  return write_parts(socket, parts, std::size(parts), stall_timeout_ms);
}

}  // namespace korvane::host
