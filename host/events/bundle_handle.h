/** What a bundle handle of the platform points to. */
#ifndef KORVANE_HOST_BUNDLE_HANDLE_H_
#define KORVANE_HOST_BUNDLE_HANDLE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bundle.h"
#include "events/event_bundle.h"

/** A look-up allocates nothing: want of memory would pass for a missing key. */
struct bundle_s {
  explicit bundle_s(korvane::host::EventBundle contents);

  korvane::host::EventBundle values;
  /** The arrays to be handed out, each with a null pointer behind its texts. */
  std::map<std::string, std::vector<const char *>, std::less<>> arrays;
};

#endif  // KORVANE_HOST_BUNDLE_HANDLE_H_
