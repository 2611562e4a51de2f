/** A timer of the main loop that ends with its owner. */
#ifndef KORVANE_HOST_SCOPED_TIMER_H_
#define KORVANE_HOST_SCOPED_TIMER_H_

#include <chrono>
#include <functional>
#include <utility>

#include "loop/main_loop.h"

namespace korvane::host {

class ScopedTimer {
 public:
  ScopedTimer() = default;
  ScopedTimer(MainLoop &loop, std::chrono::milliseconds delay, std::function<void()> handler)
      : loop_(&loop), id_(loop.add_timer(delay, std::move(handler))) {}
  ScopedTimer(ScopedTimer &&other) noexcept
      : loop_(std::exchange(other.loop_, nullptr)), id_(other.id_) {}
  ScopedTimer &operator=(ScopedTimer &&other) noexcept {
    std::swap(loop_, other.loop_);
    std::swap(id_, other.id_);
    return *this;
  }
  ~ScopedTimer() { reset(); }

  /** The handler is not called any more. */
  void reset() {
    if (loop_ != nullptr) std::exchange(loop_, nullptr)->remove(id_);
  }

 private:
  MainLoop *loop_ = nullptr;
  MainLoop::SourceId id_ = 0;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_SCOPED_TIMER_H_
