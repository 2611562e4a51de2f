/** Messages on a byte stream: a 32-bit little-endian length and that many bytes. */
#ifndef KORVANE_HOST_FRAME_H_
#define KORVANE_HOST_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace korvane::host {

/** The longest payload; a peer that claims more is broken. */
constexpr std::size_t kMaxFrameSize = std::size_t{8} << 20;
constexpr std::size_t kFrameHeaderSize = 4;

using Bytes = std::vector<std::uint8_t>;

/** Appends a frame; false, and nothing appended, when the payload is too long. */
bool append_frame(Bytes &stream, const Bytes &payload);

/**
 * Cuts a byte stream into frames. Keeps little more memory than bytes were received, whatever
 * length they claim.
 */
class FrameReader {
 public:
  /** Takes in bytes of the stream. */
  void feed(const std::uint8_t *bytes, std::size_t count);
  /** The payload of the next frame, if it is whole. */
  std::optional<Bytes> next();
  bool has_frame() const;
  /** The bytes that are held. */
  std::size_t size() const { return buffer_.size() - begin_; }
  bool empty() const { return size() == 0; }
  /** Whether the next frame claims to be too long: nothing can follow. */
  bool broken() const;

 private:
  bool has_header() const { return size() >= kFrameHeaderSize; }
  std::size_t length() const;

  Bytes buffer_;
  std::size_t begin_ = 0;  ///< of what was not handed out
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_FRAME_H_
