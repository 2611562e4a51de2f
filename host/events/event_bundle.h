/** The payload of an application event: strings, string lists and byte arrays by key. */
#ifndef KORVANE_HOST_EVENT_BUNDLE_H_
#define KORVANE_HOST_EVENT_BUNDLE_H_

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ports/parcel.h"

namespace korvane::host {

class EventBundle {
 public:
  using Bytes = std::vector<std::uint8_t>;
  using Value = std::variant<std::string, std::vector<std::string>, Bytes>;

  void set_string(const std::string &key, std::string text) { values_[key] = std::move(text); }
  void set_string_array(const std::string &key, std::vector<std::string> texts) {
    values_[key] = std::move(texts);
  }
  void set_bytes(const std::string &key, Bytes bytes) { values_[key] = std::move(bytes); }

  /** The value of a key if it has this type, otherwise null. */
  template <typename Type>
  const Type *find(std::string_view key) const {
    const auto value = values_.find(key);
    return value == values_.end() ? nullptr : std::get_if<Type>(&value->second);
  }

  /** Calls visit with key and value for each entry of this type. */
  template <typename Type, typename Visit>
  void for_each(Visit visit) const {
    for (const auto &[key, value] : values_) {
      if (const auto *found = std::get_if<Type>(&value)) visit(key, *found);
    }
  }

  Parcel encode() const;
  /** Empty when the parcel does not contain a bundle. */
  static std::optional<EventBundle> decode(Parcel parcel);

 private:
  std::map<std::string, Value, std::less<>> values_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_EVENT_BUNDLE_H_
