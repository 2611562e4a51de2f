/** Messages on a byte stream: a 32-bit little-endian length and that many bytes. */
#ifndef KORVANE_HOST_FRAME_H_
#define KORVANE_HOST_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <memory>
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
 * length they claim. When memory runs out, nothing has been taken in or handed out.
 */
class FrameReader {
 public:
  struct Room {
    std::uint8_t *bytes;
    std::size_t size;
  };

  /** Where the next bytes of the stream go, and how many can. Throws std::bad_alloc. */
  Room room();
  /** Takes in what was put into the room; false when the stream is broken, now or before. */
  bool take(std::size_t size);
  /** Whether the last bytes filled the room: there may be more of them. */
  bool filled_room() const { return filled_room_; }
  /** Takes in bytes from elsewhere. Throws std::bad_alloc. */
  bool feed(const std::uint8_t *bytes, std::size_t size);

  /** The next whole frame's payload, handed out. Throws std::bad_alloc. */
  std::optional<Bytes> next();
  /** The same in two steps, where there must be one: its payload, and letting go of it. */
  Bytes front() const;
  void drop();
  /** Whether a frame has begun that is not whole. */
  bool in_frame() const { return end_ > whole_end_; }
  bool has_frame() const { return frame_count_ > 0; }
  /** Whether nothing can come any more but the frames that are there. */
  bool broken() const { return broken_; }
  std::size_t frame_count() const { return frame_count_; }

 private:
  void make_room();

  std::unique_ptr<std::uint8_t[]> buffer_;  ///< no vector: room is not filled before it is used
  std::size_t capacity_ = 0;
  // The buffer holds whole frames from begin_ to whole_end_, and the start of another up to end_.
  std::size_t begin_ = 0;
  std::size_t whole_end_ = 0;
  std::size_t end_ = 0;
  std::size_t frame_count_ = 0;
  bool filled_room_ = false;
  bool broken_ = false;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_FRAME_H_
