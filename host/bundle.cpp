// Look-ups in bundles.
#include "bundle.h"

#include "bundle_handle.h"
#include "guard.h"

using korvane::host::EventBundle;
using korvane::host::guarded;

int bundle_get_str(bundle_h bundle, const char *key, char **text) {
  return guarded([=] {
    if (bundle == nullptr || key == nullptr || text == nullptr) return -EINVAL;
    const auto *value = bundle->values.find<std::string>(key);
    if (value == nullptr) return -ENOENT;
    *text = const_cast<char *>(value->c_str());
    return 0;
  });
}

const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count) {
  const char **result = nullptr;
  guarded([&] {
    if (bundle == nullptr || key == nullptr) return -EINVAL;
    const auto *value = bundle->values.find<std::vector<std::string>>(key);
    if (value == nullptr) return -ENOENT;
    std::vector<const char *> &texts = bundle->arrays[key];
    texts.clear();
    for (const std::string &text : *value) texts.push_back(text.c_str());
    texts.push_back(nullptr);  // so that an empty array is no null pointer
    if (count != nullptr) *count = static_cast<int>(value->size());
    result = texts.data();
    return 0;
  });
  return result;
}

int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, size_t *size) {
  return guarded([=] {
    if (bundle == nullptr || key == nullptr || bytes == nullptr || size == nullptr) return -EINVAL;
    const auto *value = bundle->values.find<EventBundle::Bytes>(key);
    if (value == nullptr) return -ENOENT;
    *bytes = const_cast<std::uint8_t *>(value->data());
    *size = value->size();
    return 0;
  });
}
