#include "ports/parcel.h"

#include <limits>
#include <stdexcept>

#include "sockets/little_endian.h"

namespace korvane::host {

void Parcel::write_int32(std::int32_t value) {
  std::uint8_t bytes[sizeof(value)];
  store_u32(bytes, static_cast<std::uint32_t>(value));
  bytes_.insert(bytes_.end(), std::begin(bytes), std::end(bytes));
}

void Parcel::write_bool(bool value) {
  bytes_.push_back(value ? 1 : 0);
}

void Parcel::write_string(std::string_view text) {
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw std::length_error("text is too long for a parcel");
  }
  write_int32(static_cast<std::int32_t>(text.size()));
  bytes_.insert(bytes_.end(), text.begin(), text.end());
}

bool Parcel::read_int32(std::int32_t &value) {
  if (left() < sizeof(value)) return false;
  value = static_cast<std::int32_t>(load_u32(&bytes_[position_]));
  position_ += sizeof(value);
  return true;
}

bool Parcel::read_bool(bool &value) {
  if (left() < 1 || bytes_[position_] > 1) return false;
  value = bytes_[position_++] == 1;
  return true;
}

bool Parcel::read_string(std::string &text) {
  std::string_view view;
  if (!read_string(view)) return false;
  text = view;
  return true;
}

bool Parcel::read_string(std::string_view &text) {
  const std::size_t start = position_;
  std::int32_t length = 0;
  if (!read_int32(length)) return false;
  if (length < 0 || static_cast<std::size_t>(length) > left()) {
    position_ = start;
    return false;
  }
  text = {reinterpret_cast<const char *>(bytes_.data()) + position_,
          static_cast<std::size_t>(length)};
  position_ += text.size();
  return true;
}

}  // namespace korvane::host
