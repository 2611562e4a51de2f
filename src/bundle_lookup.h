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

/** The byte value under a key: whether there is one, and the code in its first four bytes. */
struct ByteCode {
  bool present = false;
  std::optional<std::int32_t> code;  ///< empty when the value is shorter than a code
};

inline ByteCode find_byte_code(bundle_h bundle, const char *key) {
  void *bytes = nullptr;
  std::size_t size = 0;
  ByteCode result;
  result.present = bundle_get_byte(bundle, key, &bytes, &size) == 0;
  std::int32_t code = 0;
  if (result.present && bytes != nullptr && size >= sizeof(code)) {
    std::memcpy(&code, bytes, sizeof(code));
    result.code = code;
  }
  return result;
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_BUNDLE_LOOKUP_H_
