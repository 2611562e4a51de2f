/** Distinguishes a process from the children that it forks. */
#ifndef KORVANE_HOST_PROCESS_H_
#define KORVANE_HOST_PROCESS_H_

#include <pthread.h>

#include <atomic>

namespace korvane::host {

/** The number of forks between the process that loaded the platform and this one. */
inline std::atomic<unsigned> fork_depth{0};
[[maybe_unused]] inline const int fork_handler =
    pthread_atfork(nullptr, nullptr, [] { ++fork_depth; });

/**
 * Records which process created an object. In a child made by fork the object still belongs to the
 * parent: only the parent closes its connections, subscriptions and sockets. Asking costs no system
 * call, since every send and read asks.
 */
class ProcessMark {
 public:
  bool is_ours() const { return depth_ == fork_depth; }

 private:
  unsigned depth_ = fork_depth;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_PROCESS_H_
