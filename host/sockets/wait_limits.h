/** How long the platform waits for a peer that does not respond. */
#ifndef KORVANE_HOST_WAIT_LIMITS_H_
#define KORVANE_HOST_WAIT_LIMITS_H_

namespace korvane::host {

/** In milliseconds. */
struct Limits {
  int greeting = 5000;     ///< until a connected peer sends its first message
  int answer = 5000;       ///< for the answer to a hello
  int frame = 5000;        ///< for the rest of a frame after its first byte
  int send_stall = 10000;  ///< for a peer that does not read
};

/** The limits of this process. May be changed only before the platform is used. */
inline Limits limits;

}  // namespace korvane::host

#endif  // KORVANE_HOST_WAIT_LIMITS_H_
