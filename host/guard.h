/** Where the platform's C++ meets its C functions. */
#ifndef KORVANE_HOST_GUARD_H_
#define KORVANE_HOST_GUARD_H_

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <system_error>

#include "dlog.h"

namespace korvane::host {

/** Runs the body of a platform function; exceptions become negated errno values. */
template <typename Body>
int guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::system_error &error) {
    dlog_print(4, "KORVANE_HOST", "%s", error.what());
    const int number = error.code().value();
    // Nobody listens, or the device has no such place: an I/O error to the caller.
    return number == EACCES || number == EPERM ? -EACCES : number == EINVAL ? -EINVAL : -EIO;
  } catch (const std::bad_alloc &) {
    return -ENOMEM;
  } catch (...) {
    return -EIO;
  }
}

/** A copy for a caller that releases it with free. Throws std::bad_alloc. */
inline char *heap_copy(const std::string &text) {
  char *copy = strdup(text.c_str());
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

}  // namespace korvane::host

#endif  // KORVANE_HOST_GUARD_H_
