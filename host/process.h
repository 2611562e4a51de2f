/** Telling a process from the children that it forks. */
#ifndef KORVANE_HOST_PROCESS_H_
#define KORVANE_HOST_PROCESS_H_

#include <unistd.h>

namespace korvane::host {

/**
 * Made along with something that belongs to the process. In a child made by fork it is still the
 * parent's: connections, subscriptions and their sockets are ended by the process that made them.
 */
class ProcessMark {
 public:
  bool is_ours() const { return process_ == getpid(); }

 private:
  pid_t process_ = getpid();
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_PROCESS_H_
