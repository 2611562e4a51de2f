#include "frame.h"

#include "little_endian.h"

namespace korvane::host {

bool append_frame(Bytes &stream, const Bytes &payload) {
  if (payload.size() > kMaxFrameSize) return false;
  std::uint8_t header[kFrameHeaderSize];
  store_u32(header, static_cast<std::uint32_t>(payload.size()));
  stream.insert(stream.end(), std::begin(header), std::end(header));
  stream.insert(stream.end(), payload.begin(), payload.end());
  return true;
}

bool FrameReader::feed(const std::uint8_t *bytes, std::size_t size) {
  if (broken_) return false;
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  std::size_t start = 0;
  while (buffer_.size() - start >= kFrameHeaderSize) {
    const std::size_t length = load_u32(&buffer_[start]);
    if (length > kMaxFrameSize) {
      broken_ = true;
      break;
    }
    if (buffer_.size() - start - kFrameHeaderSize < length) break;
    const auto payload = buffer_.begin() + static_cast<std::ptrdiff_t>(start + kFrameHeaderSize);
    frames_.emplace_back(payload, payload + static_cast<std::ptrdiff_t>(length));
    start += kFrameHeaderSize + length;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start));
  return !broken_;
}

std::optional<Bytes> FrameReader::next() {
  if (frames_.empty()) return std::nullopt;
  Bytes payload = std::move(frames_.front());
  frames_.pop_front();
  return payload;
}

}  // namespace korvane::host
