/** Messages on a byte stream: a 32-bit little-endian length and that many bytes. */
#ifndef KORVANE_HOST_FRAME_H_
#define KORVANE_HOST_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace korvane::host {

/** The longest payload; a peer that claims more is broken. */
constexpr std::size_t kMaxFrameSize = std::size_t{8} << 20;
constexpr std::size_t kFrameHeaderSize = 4;

using Bytes = std::vector<std::uint8_t>;

/** Appends a frame; false, and nothing appended, when the payload is too long. */
bool append_frame(Bytes &stream, const Bytes &payload);

/** Cuts a byte stream into frames. Keeps no more memory than bytes were received. */
class FrameReader {
 public:
  /** Takes bytes in; false when the stream is broken, now or before. */
  bool feed(const std::uint8_t *bytes, std::size_t size);
  /** The next whole frame's payload. */
  std::optional<Bytes> next();
  /** Whether a frame has begun that is not whole. */
  bool in_frame() const { return !buffer_.empty(); }
  bool has_frame() const { return !frames_.empty(); }
  /** Whether nothing can come any more but the frames that are there. */
  bool broken() const { return broken_; }
  std::size_t frame_count() const { return frames_.size(); }

 private:
  Bytes buffer_;
  std::deque<Bytes> frames_;
  bool broken_ = false;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_FRAME_H_
