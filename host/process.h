/** Distinguishes a process from the children that it forks. */
#ifndef KORVANE_HOST_PROCESS_H_
#define KORVANE_HOST_PROCESS_H_

#include <unistd.h>

namespace korvane::host {

/**
 * Records which process created an object. In a child made by fork the object still belongs to the
 * parent: only the parent closes its connections, subscriptions and sockets.
 */
class ProcessMark {
 public:
  bool is_ours() const { return process_ == getpid(); }

 private:
  pid_t process_ = getpid();
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_PROCESS_H_
