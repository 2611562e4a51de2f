/** Where the platform's C++ meets its C functions. */
#ifndef KORVANE_HOST_GUARD_H_
#define KORVANE_HOST_GUARD_H_

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>
#include <system_error>

#include "dlog.h"

namespace korvane::host {

/**
 * What a caller of the platform is told of an errno value: invalid parameter, permission denied,
 * and an I/O error for whatever else went wrong, lack of memory included.
 */
constexpr int failure_of(int error) {
  return error == EINVAL ? -EINVAL : error == EACCES || error == EPERM ? -EACCES : -EIO;
}

/**
 * Runs the body of a platform function; exceptions become platform error numbers. Failures of the
 * system, a peer that is not there for one, are logged as information, all others as errors.
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

/** A copy for a caller that releases it with free. Throws std::bad_alloc. */
inline char *heap_copy(std::string_view text) {
  char *copy = strndup(text.data(), text.size());
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

}  // namespace korvane::host

#endif  // KORVANE_HOST_GUARD_H_
