#include "sockets/frame.h"

#include <algorithm>
#include <cstring>

#include "sockets/little_endian.h"

namespace korvane::host {

namespace {

/** What is asked for at least when bytes are to come. */
constexpr std::size_t kMinRoom = std::size_t{16} << 10;

}  // namespace

bool append_frame(Bytes &stream, const Bytes &payload) {
  if (payload.size() > kMaxFrameSize) return false;
  std::uint8_t header[kFrameHeaderSize];
  store_u32(header, static_cast<std::uint32_t>(payload.size()));
  // All of the room first, lest half a frame is left behind.
  const std::size_t size = stream.size() + kFrameHeaderSize + payload.size();
  if (size > stream.capacity()) stream.reserve(std::max(size, 2 * stream.capacity()));
  stream.insert(stream.end(), std::begin(header), std::end(header));
  stream.insert(stream.end(), payload.begin(), payload.end());
  return true;
}

FrameReader::Room FrameReader::room() {
  if (capacity_ - end_ < kMinRoom) make_room();
  return {&buffer_[end_], capacity_ - end_};
}

/** Moves what is kept to the front, of a larger buffer unless it filled little of this one. */
void FrameReader::make_room() {
  const std::size_t kept = end_ - begin_;
  std::size_t capacity = capacity_;
  if (kept + kMinRoom > capacity / 2) capacity = std::max(2 * capacity, 2 * kMinRoom);
  std::unique_ptr<std::uint8_t[]> larger;
  if (capacity != capacity_) larger.reset(new std::uint8_t[capacity]);
  std::uint8_t *to = larger ? larger.get() : buffer_.get();
  if (kept > 0) std::memmove(to, &buffer_[begin_], kept);
  if (larger) buffer_ = std::move(larger);
  capacity_ = capacity;
  whole_end_ -= begin_;
  end_ = kept;
  begin_ = 0;
}

bool FrameReader::take(std::size_t size) {
  if (broken_) return false;
  end_ += size;
  filled_room_ = end_ == capacity_;
  while (end_ - whole_end_ >= kFrameHeaderSize) {
    const std::size_t length = load_u32(&buffer_[whole_end_]);
    if (length > kMaxFrameSize) {
      broken_ = true;
      break;
    }
    if (end_ - whole_end_ - kFrameHeaderSize < length) break;
    whole_end_ += kFrameHeaderSize + length;
    ++frame_count_;
  }
  return !broken_;
}

bool FrameReader::feed(const std::uint8_t *bytes, std::size_t size) {
  while (size > 0 && !broken_) {
    const Room to = room();
    const std::size_t part = std::min(size, to.size);
    std::memcpy(to.bytes, bytes, part);
    take(part);
    bytes += part;
    size -= part;
  }
  return !broken_;
}

std::optional<Bytes> FrameReader::next() {
  if (!has_frame()) return std::nullopt;
  Bytes payload = front();
  drop();
  return payload;
}

Bytes FrameReader::front() const {
  const std::uint8_t *const payload = &buffer_[begin_ + kFrameHeaderSize];
  return Bytes(payload, payload + load_u32(&buffer_[begin_]));
}

void FrameReader::drop() {
  begin_ += kFrameHeaderSize + load_u32(&buffer_[begin_]);
  --frame_count_;
  if (begin_ < end_) return;
  begin_ = whole_end_ = end_ = 0;
  // One long frame does not cost memory for ever.
  if (capacity_ > 4 * kMinRoom) {
    buffer_.reset();
    capacity_ = 0;
  }
}

}  // namespace korvane::host
