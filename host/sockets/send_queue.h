/** What a peer has not taken yet. */
#ifndef KORVANE_HOST_SEND_QUEUE_H_
#define KORVANE_HOST_SEND_QUEUE_H_

#include "sockets/frame.h"

namespace korvane::host {

/** Bytes on their way to a socket, which is never waited for. */
class SendQueue {
 public:
  /** False, and nothing queued, when the payload is too long for a frame. */
  bool add_frame(const Bytes &payload) { return append_frame(bytes_, payload); }
  void add(const Bytes &bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

  /** Sends what the socket takes at once. The loop tells when it takes more, or has failed. */
  void send_to(int socket);

  std::size_t size() const { return bytes_.size() - sent_; }
  bool empty() const { return size() == 0; }
  void clear();

 private:
  Bytes bytes_;
  std::size_t sent_ = 0;  ///< at the beginning of the bytes
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_SEND_QUEUE_H_
