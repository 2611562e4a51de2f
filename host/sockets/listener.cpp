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
      source_(loop_.add_descriptor(socket_.get(), EPOLLIN, [this](std::uint32_t) { accept(); })) {}

Listener::~Listener() {
  loop_.remove(source_);
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void Listener::accept() {
  errno = 0;
  UniqueFd peer = accept_peer(socket_.get());
  if (peer) {
    accepted_(std::move(peer));
  } else if (is_shortage(errno)) {
    // The peer stays in the queue of the socket, which would keep the loop busy.
    loop_.change_events(source_, 0);
    pause_ = ScopedTimer(loop_, kPause, [this] { loop_.change_events(source_, EPOLLIN); });
  }
}

}  // namespace korvane::host
