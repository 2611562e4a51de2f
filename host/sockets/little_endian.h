/** Encoding of 32-bit numbers in messages. */
#ifndef KORVANE_HOST_LITTLE_ENDIAN_H_
#define KORVANE_HOST_LITTLE_ENDIAN_H_

#include <cstdint>

namespace korvane::host {

inline void store_u32(std::uint8_t *bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

inline std::uint32_t load_u32(const std::uint8_t *bytes) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value |= std::uint32_t{bytes[i]} << (8 * i);
  return value;
}

}  // namespace korvane::host

#endif  // KORVANE_HOST_LITTLE_ENDIAN_H_
