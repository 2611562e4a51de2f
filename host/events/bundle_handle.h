/** The type behind the platform's bundle handles. */
#ifndef KORVANE_HOST_BUNDLE_HANDLE_H_
#define KORVANE_HOST_BUNDLE_HANDLE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bundle.h"
#include "events/event_bundle.h"

/** Look-ups do not allocate: running out of memory would be reported as a missing key. */
struct bundle_s {
  explicit bundle_s(korvane::host::EventBundle contents);

  korvane::host::EventBundle values;
  /** The arrays that are handed out. Each ends with a null pointer. */
  std::map<std::string, std::vector<const char *>, std::less<>> arrays;
};

#endif  // KORVANE_HOST_BUNDLE_HANDLE_H_
