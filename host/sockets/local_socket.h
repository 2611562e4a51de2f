/** Unix stream sockets that are private to their user. */
#ifndef KORVANE_HOST_LOCAL_SOCKET_H_
#define KORVANE_HOST_LOCAL_SOCKET_H_

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>

#include "deadline.h"
#include "sockets/frame.h"
#include "sockets/unique_fd.h"

namespace korvane::host {

/** Where a listening socket is, or is to be; of any length. */
class ListenerPath {
 public:
  ListenerPath() = default;
  explicit ListenerPath(std::filesystem::path path);

  /**
   * A non-blocking, listening socket that nobody knows yet: its name begins with a dot until
   * enlist() gives it the path, where it replaces what is there. Both throw std::system_error.
   */
  UniqueFd listen() const;
  void enlist() const;
  /** Removes the socket, enlisted or not. */
  void remove() const noexcept;

 private:
  std::filesystem::path path_;
  std::filesystem::path unlisted_;
};

/** A listening socket that is enlisted at once. */
UniqueFd listen_at(const std::filesystem::path &path);

/**
 * A connected, non-blocking socket. Throws std::system_error: EACCES for a
 * peer of another user, ENOENT or ECONNREFUSED when nobody listens.
 */
UniqueFd connect_to(const std::filesystem::path &path);

/**
 * The next waiting peer. Empty, and errno set, when there is none to be had; empty, and errno left
 * alone, when it is another user's, who is turned away.
 */
UniqueFd accept_peer(int listener);

/** Whether the peer has ended its side. */
bool peer_has_ended(int socket);

/** The process at the other end. */
pid_t peer_process(int socket);

enum class ReadState { kData, kNothing, kEnd };

/** Takes what has arrived, at most one buffer full, without waiting. kEnd: lost or broken. */
ReadState read_available(int socket, FrameReader &reader);

/**
 * Waits until the reader has a frame; with a limit once it has begun. False when the connection is
 * lost, of which the end of a companion socket is a sign too.
 */
bool await_frame(int socket, FrameReader &reader, int begin_timeout_ms, int companion = -1);

/** Waits for the next frame in the same way; empty when the connection is lost. */
std::optional<Bytes> read_frame(int socket, FrameReader &reader, int begin_timeout_ms);

/**
 * Sends what the peer takes at once, and removes it from the bytes. A lost connection is for the
 * loop to report.
 */
void send_available(int socket, Bytes &bytes);

/** Writes everything; 0 or an errno value. Waits for a peer that takes nothing up to a limit. */
int write_all(int socket, const Bytes &bytes, int stall_timeout_ms);
/** Writes what the peer takes until the deadline. */
int write_all(int socket, const Bytes &bytes, const Deadline &deadline);

/** Writes a frame, with a limit for a peer that takes nothing; EMSGSIZE, and nothing is written,
 * when it is too long. */
int write_frame(int socket, const Bytes &payload, int stall_timeout_ms);

}  // namespace korvane::host

#endif  // KORVANE_HOST_LOCAL_SOCKET_H_
