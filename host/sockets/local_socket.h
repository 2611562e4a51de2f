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

/** The path of a listening socket; may be longer than a socket address. */
class ListenerPath {
 public:
  ListenerPath() = default;
  explicit ListenerPath(std::filesystem::path path);

  /**
   * Creates a non-blocking, listening socket under a temporary name that begins with a dot.
   * enlist() renames it to the path and replaces an existing file. Both throw std::system_error.
   */
  UniqueFd listen() const;
  void enlist() const;
  /** Removes the socket, whether enlisted or not. */
  void remove() const noexcept;

 private:
  std::filesystem::path path_;
  std::filesystem::path unlisted_;
};

/** A listening socket that is enlisted immediately. */
UniqueFd listen_at(const std::filesystem::path &path);

/**
 * A connected, non-blocking socket. Throws std::system_error: EACCES for a peer of another user,
 * ENOENT or ECONNREFUSED when no process listens.
 */
UniqueFd connect_to(const std::filesystem::path &path);

/**
 * Accepts the next waiting peer. Empty with errno set when there is none or accepting fails. Empty
 * with errno unchanged when the peer belongs to another user and was rejected.
 */
UniqueFd accept_peer(int listener);

/** Whether the peer has closed its side. */
bool peer_has_ended(int socket);

/** The process on the other end. */
pid_t peer_process(int socket);

enum class ReadState { kData, kNothing, kEnd };

/** Reads available data, at most one buffer, without waiting. kEnd: connection lost or broken. */
ReadState read_available(int socket, FrameReader &reader);

/**
 * Waits until the reader has a frame. A frame that has begun must be complete within a limit.
 * Returns false when the connection is lost; a closed companion socket counts as lost, too.
 */
bool await_frame(int socket, FrameReader &reader, int begin_timeout_ms, int companion = -1);

/** Waits for the next frame as await_frame() does; empty when the connection is lost. */
std::optional<Bytes> read_frame(int socket, FrameReader &reader, int begin_timeout_ms);

/**
 * Sends what the socket accepts at once and removes it from the bytes. A lost connection is not
 * reported here, but by the loop.
 */
void send_available(int socket, Bytes &bytes);

/**
 * Writes everything. Waits up to a limit for a peer that does not read. Returns 0 or an errno
 * value.
 */
int write_all(int socket, const Bytes &bytes, int stall_timeout_ms);
/** Writes everything until the deadline. Returns 0 or an errno value. */
int write_all(int socket, const Bytes &bytes, const Deadline &deadline);

/**
 * Writes a frame, with a limit for a peer that does not read. Returns EMSGSIZE and writes nothing
 * when the payload is too long.
 */
int write_frame(int socket, const Bytes &payload, int stall_timeout_ms);

}  // namespace korvane::host

#endif  // KORVANE_HOST_LOCAL_SOCKET_H_
