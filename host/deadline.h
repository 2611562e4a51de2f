/** A point in time until which a wait may last. */
#ifndef KORVANE_HOST_DEADLINE_H_
#define KORVANE_HOST_DEADLINE_H_

#include <algorithm>
#include <chrono>

namespace korvane::host {

constexpr int kNoLimit = -1;

class Deadline {
 public:
  explicit Deadline(int timeout_ms = kNoLimit)
      : is_limited_(timeout_ms >= 0), end_(Clock::now() + std::chrono::milliseconds(timeout_ms)) {}

  /** Remaining time in milliseconds, at least 0; kNoLimit without a limit. */
  int left_ms() const {
    if (!is_limited_) return kNoLimit;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool is_limited_;
  Clock::time_point end_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_DEADLINE_H_
