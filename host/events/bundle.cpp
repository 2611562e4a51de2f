// Look-ups in bundles.
#include "bundle.h"

#include <cerrno>
#include <utility>

#include "events/bundle_handle.h"

using korvane::host::EventBundle;

bundle_s::bundle_s(EventBundle contents) : values(std::move(contents)) {
  values.for_each<std::vector<std::string>>([this](const std::string &key, const auto &texts) {
    std::vector<const char *> &array = arrays[key];
    for (const std::string &text : texts) array.push_back(text.c_str());
    array.push_back(nullptr);
  });
}

int bundle_get_str(bundle_h bundle, const char *key, char **text) {
  if (bundle == nullptr || key == nullptr || text == nullptr) return -EINVAL;
  const auto *value = bundle->values.find<std::string>(key);
  if (value == nullptr) return -EIO;
  *text = const_cast<char *>(value->c_str());
  return 0;
}

const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count) {
  if (bundle == nullptr || key == nullptr) return nullptr;
  const auto array = bundle->arrays.find(key);
  if (array == bundle->arrays.end()) return nullptr;
  if (count != nullptr) *count = static_cast<int>(array->second.size()) - 1;
  return array->second.data();
}

int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, size_t *size) {
  if (bundle == nullptr || key == nullptr || bytes == nullptr || size == nullptr) return -EINVAL;
  const auto *value = bundle->values.find<EventBundle::Bytes>(key);
  if (value == nullptr) return -EIO;
  *bytes = const_cast<std::uint8_t *>(value->data());
  *size = value->size();
  return 0;
}
