/** A message: a sequence of values, encoded identically on every architecture. */
#ifndef KORVANE_HOST_PARCEL_H_
#define KORVANE_HOST_PARCEL_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::host {

/**
 * A byte buffer with a read position.
 *
 * int32: four bytes, little-endian. bool: one byte, 0 or 1. string: an int32 length and that many
 * bytes. array count: an int32. A read returns false when there is no such value; target and
 * position then stay unchanged.
 */
class Parcel {
 public:
  explicit Parcel(std::vector<std::uint8_t> bytes = {}) : bytes_(std::move(bytes)) {}

  void write_int32(std::int32_t value);
  void write_bool(bool value);
  void write_string(std::string_view text);
  void write_array_count(std::int32_t count) { write_int32(count); }

  bool read_int32(std::int32_t &value);
  bool read_bool(bool &value);
  bool read_string(std::string &text);
  /** A view of the string, valid until the parcel is changed or moved. */
  bool read_string(std::string_view &text);
  bool read_array_count(std::int32_t &count) { return read_int32(count); }

  const std::vector<std::uint8_t> &bytes() const { return bytes_; }
  bool at_end() const { return position_ == bytes_.size(); }
  void rewind() { position_ = 0; }

 private:
  std::size_t left() const { return bytes_.size() - position_; }

  std::vector<std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_PARCEL_H_
