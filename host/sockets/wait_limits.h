/** How long the platform waits for a peer that keeps to no rule. */
#ifndef KORVANE_HOST_WAIT_LIMITS_H_
#define KORVANE_HOST_WAIT_LIMITS_H_

namespace korvane::host {

/** In milliseconds. */
struct Limits {
  int greeting = 5000;     ///< for a peer that has connected and says nothing
  int answer = 5000;       ///< for the answer to a hello that is waited for
  int frame = 5000;        ///< for the rest of a frame that has begun
  int send_stall = 10000;  ///< for a peer that takes nothing of what it is sent
};

/** Those of the process. To be changed before the platform is used, if at all. */
inline Limits limits;

}  // namespace korvane::host

#endif  // KORVANE_HOST_WAIT_LIMITS_H_
