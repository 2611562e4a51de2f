/** Typed look-ups in the payload of a platform event. */
#ifndef KORVANE_SVCMGR_BUNDLE_LOOKUP_H_
#define KORVANE_SVCMGR_BUNDLE_LOOKUP_H_

#include <cstdint>
#include <cstring>
#include <optional>

#include "bundle.h"

namespace svcmgr {

inline bool has_string(bundle_h bundle, const char *key) {
  char *text = nullptr;
  return bundle_get_str(bundle, key, &text) == 0;
}

inline bool has_string_array(bundle_h bundle, const char *key) {
  int count = 0;
  return bundle_get_str_array(bundle, key, &count) != nullptr;
}

/**
 * The code in the first four bytes of the byte value under a key. A shorter value gives -1, which
 * is no code of the service manager.
 */
inline std::optional<std::int32_t> find_code(bundle_h bundle, const char *key) {
  void *bytes = nullptr;
  std::size_t size = 0;
  if (bundle_get_byte(bundle, key, &bytes, &size) != 0) return std::nullopt;
  std::int32_t code = -1;
  if (bytes != nullptr && size >= sizeof(code)) std::memcpy(&code, bytes, sizeof(code));
  return code;
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_BUNDLE_LOOKUP_H_
