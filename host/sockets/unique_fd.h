/** Owner of a file descriptor. */
#ifndef KORVANE_HOST_UNIQUE_FD_H_
#define KORVANE_HOST_UNIQUE_FD_H_

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace korvane::host {

/**
 * Moves a descriptor above the numbers of the standard streams. A process may run with some of
 * these closed; printed text would otherwise go to the descriptor. Negative, with errno set, on
 * failure.
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
