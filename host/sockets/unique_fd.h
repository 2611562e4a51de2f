/** Owner of a file descriptor. */
#ifndef KORVANE_HOST_UNIQUE_FD_H_
#define KORVANE_HOST_UNIQUE_FD_H_

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace korvane::host {

/**
 * The descriptor under a number that no standard stream has, also in a process that runs without
 * some of these: what is printed would go into it. Negative, with errno, on failure.
 */
inline int beyond_standard_streams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(descriptor);
  return moved;
}

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
  UniqueFd(UniqueFd &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  void reset() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  }

 private:
  int descriptor_ = -1;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_UNIQUE_FD_H_
