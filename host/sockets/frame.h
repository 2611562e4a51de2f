/** Frames on a byte stream: a 32-bit little-endian length and that many bytes. */
#ifndef KORVANE_HOST_FRAME_H_
#define KORVANE_HOST_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace korvane::host {

/** The longest payload; a longer length marks the stream as broken. */
constexpr std::size_t kMaxFrameSize = std::size_t{8} << 20;
constexpr std::size_t kFrameHeaderSize = 4;

using Bytes = std::vector<std::uint8_t>;

/** Appends a frame. Returns false and appends nothing when the payload is too long. */
bool append_frame(Bytes &stream, const Bytes &payload);

/**
 * Splits a byte stream into frames. Memory grows with the bytes received, not with the length that
 * a frame claims.
 */
class FrameReader {
 public:
  /** Adds bytes of the stream. */
  void feed(const std::uint8_t *bytes, std::size_t count);
  /** The payload of the next frame; empty while it is incomplete. */
  std::optional<Bytes> next();
  bool has_frame() const;
  /** The number of buffered bytes. */
  std::size_t size() const { return buffer_.size() - begin_; }
  bool empty() const { return size() == 0; }
  /** Whether the next frame claims to be too long; the stream cannot be read further. */
  bool broken() const;

 private:
  bool has_header() const { return size() >= kFrameHeaderSize; }
  std::size_t length() const;

  Bytes buffer_;
  std::size_t begin_ = 0;  ///< of the bytes not returned yet
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_FRAME_H_
