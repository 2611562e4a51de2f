#include "sockets/listener.h"

#include <sys/epoll.h>

#include <cerrno>
#include <system_error>

#include "sockets/local_socket.h"

namespace korvane::host {

namespace {

constexpr std::chrono::milliseconds kPause(100);

bool is_shortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

Listener::Listener(MainLoop &loop, std::filesystem::path path,
                   std::function<void(UniqueFd)> accepted)
    : loop_(loop),
      path_(std::move(path)),
      accepted_(std::move(accepted)),
      socket_(listen_at(path_)),
      source_(loop, socket_.get(), EPOLLIN, [this](std::uint32_t) { accept(); }) {}

Listener::~Listener() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void Listener::accept() {
  errno = 0;
  UniqueFd peer = accept_peer(socket_.get());
  if (peer) {
    accepted_(std::move(peer));
  } else if (is_shortage(errno)) {
    // The peer stays in the queue of the socket and would keep the loop busy.
    source_.change_events(0);
    pause_ = ScopedTimer(loop_, kPause, [this] { source_.change_events(EPOLLIN); });
  }
}

}  // namespace korvane::host
