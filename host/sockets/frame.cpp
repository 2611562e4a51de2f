#include "sockets/frame.h"

#include "sockets/little_endian.h"

namespace korvane::host {

namespace {

/** An empty reader keeps at most this much memory for reuse. */
constexpr std::size_t kKeptCapacity = std::size_t{64} << 10;

}  // namespace

bool append_frame(Bytes &stream, const Bytes &payload) {
  if (payload.size() > kMaxFrameSize) return false;
  std::uint8_t header[kFrameHeaderSize];
  store_u32(header, static_cast<std::uint32_t>(payload.size()));
  stream.insert(stream.end(), std::begin(header), std::end(header));
  stream.insert(stream.end(), payload.begin(), payload.end());
  return true;
}

void FrameReader::feed(const std::uint8_t *bytes, std::size_t count) {
  if (begin_ > size()) {
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
  }
  buffer_.insert(buffer_.end(), bytes, bytes + count);
}

std::optional<Bytes> FrameReader::next() {
  if (!has_frame()) return std::nullopt;
  const auto payload = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_ + kFrameHeaderSize);
  Bytes frame(payload, payload + static_cast<std::ptrdiff_t>(length()));
  begin_ += kFrameHeaderSize + frame.size();
  if (size() == 0) {
    buffer_.clear();
    begin_ = 0;
    if (buffer_.capacity() > kKeptCapacity) buffer_.shrink_to_fit();
  }
  return frame;
}

bool FrameReader::has_frame() const {
  return has_header() && !broken() && size() - kFrameHeaderSize >= length();
}

bool FrameReader::broken() const {
  return has_header() && length() > kMaxFrameSize;
}

std::size_t FrameReader::length() const {
  return load_u32(&buffer_[begin_]);
}

}  // namespace korvane::host
