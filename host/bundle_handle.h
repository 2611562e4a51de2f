/** What a bundle handle of the platform points to. */
#ifndef KORVANE_HOST_BUNDLE_HANDLE_H_
#define KORVANE_HOST_BUNDLE_HANDLE_H_

#include <map>
#include <string>
#include <vector>

#include "bundle.h"
#include "event_bundle.h"

struct bundle_s {
  korvane::host::EventBundle values;
  /** The arrays handed out, which live as long as the bundle. */
  std::map<std::string, std::vector<const char *>> arrays;
};

#endif  // KORVANE_HOST_BUNDLE_HANDLE_H_
