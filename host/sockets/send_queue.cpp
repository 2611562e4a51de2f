#include "sockets/send_queue.h"

#include <sys/socket.h>

#include <cerrno>

namespace korvane::host {

namespace {

/** An empty queue keeps this much memory for what comes next. */
constexpr std::size_t kKeptCapacity = 64 << 10;

}  // namespace

void SendQueue::send_to(int socket) {
  while (!empty()) {
    const ssize_t size =
        send(socket, bytes_.data() + sent_, this->size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) break;
    sent_ += static_cast<std::size_t>(size);
  }
  if (empty()) {
    clear();
  } else if (sent_ > size()) {  // what is moved was paid for by what was sent
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(sent_));
    sent_ = 0;
  }
}

void SendQueue::clear() {
  bytes_.clear();
  sent_ = 0;
  if (bytes_.capacity() > kKeptCapacity) bytes_.shrink_to_fit();
}

}  // namespace korvane::host
