#include "events/event_bundle.h"

namespace korvane::host {

namespace {

// A value is encoded as its type, an index into the variant, followed by its contents.

void write(Parcel &parcel, const std::string &text) {
  parcel.write_string(text);
}

void write(Parcel &parcel, const std::vector<std::string> &texts) {
  parcel.write_array_count(static_cast<std::int32_t>(texts.size()));
  for (const std::string &text : texts) parcel.write_string(text);
}

void write(Parcel &parcel, const EventBundle::Bytes &bytes) {
  parcel.write_string({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

bool read(Parcel &parcel, std::string &text) {
  return parcel.read_string(text);
}

bool read(Parcel &parcel, std::vector<std::string> &texts) {
  std::int32_t count = 0;
  if (!parcel.read_array_count(count)) return false;
  for (std::int32_t i = 0; i < count; ++i) {
    std::string text;
    if (!parcel.read_string(text)) return false;
    texts.push_back(std::move(text));
  }
  return true;
}

bool read(Parcel &parcel, EventBundle::Bytes &bytes) {
  std::string text;
  if (!parcel.read_string(text)) return false;
  bytes.assign(text.begin(), text.end());
  return true;
}

bool read_value(Parcel &parcel, EventBundle::Value &value) {
  std::int32_t type = 0;
  if (!parcel.read_int32(type)) return false;
  switch (type) {
    case 0:
      return read(parcel, value.emplace<0>());
    case 1:
      return read(parcel, value.emplace<1>());
    case 2:
      return read(parcel, value.emplace<2>());
    default:
      return false;
  }
}

}  // namespace

Parcel EventBundle::encode() const {
  Parcel parcel;
  parcel.write_array_count(static_cast<std::int32_t>(values_.size()));
  for (const auto &[key, value] : values_) {
    parcel.write_string(key);
    parcel.write_int32(static_cast<std::int32_t>(value.index()));
    std::visit([&parcel](const auto &contents) { write(parcel, contents); }, value);
  }
  return parcel;
}

std::optional<EventBundle> EventBundle::decode(Parcel parcel) {
  std::int32_t count = 0;
  if (!parcel.read_array_count(count)) return std::nullopt;
  EventBundle bundle;
  for (std::int32_t i = 0; i < count; ++i) {
    std::string key;
    Value value;
    if (!parcel.read_string(key) || !read_value(parcel, value)) return std::nullopt;
    bundle.values_[key] = std::move(value);
  }
  return bundle;
}

}  // namespace korvane::host
