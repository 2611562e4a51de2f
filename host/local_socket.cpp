#include "local_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <system_error>

namespace korvane::host {

namespace {

constexpr int kBacklog = 4096;

/** The longest wait for the rest of a frame that has begun. */
constexpr int kFrameTimeoutMs = 5000;

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd new_socket() {
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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

std::filesystem::path unlisted_path(const std::filesystem::path &path) {
  return path.parent_path() / ("." + path.filename().string());
}

}  // namespace

UniqueFd listen_unlisted(const std::filesystem::path &path) {
  UniqueFd socket = new_socket();
  // Nobody may meet a socket that does not listen yet: it would pass for one whose owner died.
  const std::filesystem::path unlisted = unlisted_path(path);
  unlink(unlisted.c_str());
  const int bound = with_address(unlisted, [&socket](const sockaddr *address, socklen_t size) {
    return bind(socket.get(), address, size);
  });
  if (bound != 0) fail("bind");
  if (chmod(unlisted.c_str(), 0600) != 0) fail("chmod");
  if (listen(socket.get(), kBacklog) != 0) fail("listen");
  return socket;
}

void enlist(const std::filesystem::path &path) {
  if (rename(unlisted_path(path).c_str(), path.c_str()) != 0) fail("rename");
}

UniqueFd listen_at(const std::filesystem::path &path) {
  UniqueFd socket = listen_unlisted(path);
  enlist(path);
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
  UniqueFd socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
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
  std::uint8_t buffer[64 * 1024];
  const ssize_t size = recv(socket, buffer, sizeof(buffer), MSG_DONTWAIT);
  if (size > 0) {
    return reader.feed(buffer, static_cast<std::size_t>(size)) ? ReadState::kData : ReadState::kEnd;
  }
  const bool again = size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
  return again ? ReadState::kNothing : ReadState::kEnd;
}

std::optional<Bytes> read_frame(int socket, FrameReader &reader, int begin_timeout_ms,
                                int companion) {
  const auto frame_deadline = [] {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(kFrameTimeoutMs);
  };
  std::optional<std::chrono::steady_clock::time_point> deadline;
  for (;;) {
    if (auto frame = reader.next()) return frame;
    if (reader.broken()) return std::nullopt;
    if (reader.in_frame() && !deadline) deadline = frame_deadline();
    int timeout = begin_timeout_ms;
    if (deadline) {
      timeout = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     *deadline - std::chrono::steady_clock::now())
                                     .count());
      if (timeout < 0) return std::nullopt;
    }
    const bool ready = wait_ready(socket, POLLIN, timeout, companion);
    // What came just before the companion ended is taken all the same.
    const ReadState state = read_available(socket, reader);
    const bool lost = state == ReadState::kEnd || (state == ReadState::kNothing && !ready);
    if (lost && !reader.has_frame()) return std::nullopt;
  }
}

int write_all(int socket, const Bytes &bytes, int stall_timeout_ms) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t size =
        send(socket, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size >= 0) {
      written += static_cast<std::size_t>(size);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (!wait_ready(socket, POLLOUT, stall_timeout_ms)) return ETIMEDOUT;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace korvane::host
