/** Errors inside the platform, and their conversion to error numbers at the border to C. */
#ifndef KORVANE_HOST_GUARD_H_
#define KORVANE_HOST_GUARD_H_

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "dlog.h"

namespace korvane::host {

/** Throws the std::system_error of an errno value. */
[[noreturn]] inline void fail(int error, const std::string &what) {
  throw std::system_error(error, std::generic_category(), what);
}

/**
 * The platform error number for an errno value: invalid parameter, permission denied, or an I/O
 * error for everything else, including lack of memory.
 */
constexpr int failure_of(int error) {
  return error == EINVAL ? -EINVAL : error == EACCES || error == EPERM ? -EACCES : -EIO;
}

/**
 * Runs the body of a platform function and converts exceptions to platform error numbers. System
 * errors, such as a missing peer, are logged as information, all others as errors.
 */
template <typename Body>
int guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::system_error &error) {
    dlog_print(4, "KORVANE_HOST", "%s", error.what());
    return failure_of(error.code().value());
  } catch (const std::exception &error) {
    dlog_print(6, "KORVANE_HOST", "%s", error.what());
    return -EIO;
  } catch (...) {
    return -EIO;
  }
}

/** A copy that the caller releases with free(). Throws std::bad_alloc. */
inline char *heap_copy(std::string_view text) {
  char *copy = strndup(text.data(), text.size());
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

}  // namespace korvane::host

#endif  // KORVANE_HOST_GUARD_H_
