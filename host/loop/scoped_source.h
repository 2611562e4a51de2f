/** Owners of main loop sources. */
#ifndef KORVANE_HOST_SCOPED_SOURCE_H_
#define KORVANE_HOST_SCOPED_SOURCE_H_

#include <chrono>
#include <functional>
#include <utility>

#include "loop/main_loop.h"

namespace korvane::host {

/** A source of a main loop, removed on destruction. */
class ScopedSource {
 public:
  ScopedSource() = default;
  ScopedSource(MainLoop &loop, int descriptor, std::uint32_t epoll_events,
               std::function<void(std::uint32_t)> handler)
      : ScopedSource(loop, loop.add_descriptor(descriptor, epoll_events, std::move(handler))) {}
  ScopedSource(ScopedSource &&other) noexcept
      : loop_(std::exchange(other.loop_, nullptr)), id_(other.id_) {}
  ScopedSource &operator=(ScopedSource &&other) noexcept {
    std::swap(loop_, other.loop_);
    std::swap(id_, other.id_);
    return *this;
  }
  ~ScopedSource() { reset(); }

  void change_events(std::uint32_t epoll_events) const {
    if (loop_ != nullptr) loop_->change_events(id_, epoll_events);
  }
  /** Removes the source; its handler is not called afterwards. */
  void reset() {
    if (loop_ != nullptr) std::exchange(loop_, nullptr)->remove(id_);
  }

 protected:
  ScopedSource(MainLoop &loop, MainLoop::SourceId id) : loop_(&loop), id_(id) {}

 private:
  MainLoop *loop_ = nullptr;
  MainLoop::SourceId id_ = 0;
};

/** A timer of a main loop, removed on destruction. */
class ScopedTimer : public ScopedSource {
 public:
  ScopedTimer() = default;
  ScopedTimer(MainLoop &loop, std::chrono::milliseconds delay, std::function<void()> handler)
      : ScopedSource(loop, loop.add_timer(delay, std::move(handler))) {}
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_SCOPED_SOURCE_H_
