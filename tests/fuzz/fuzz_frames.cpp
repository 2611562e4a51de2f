// Arbitrary byte streams into the socket framing of the workstation platform, in pieces.
#include <sys/socket.h>

#include "event_bundle.h"
#include "fuzz_platform.h"
#include "local_socket.h"
#include "rpc_port_protocol.h"
#include "unique_fd.h"

using korvane::host::Bytes;
using korvane::host::EventBundle;
using korvane::host::FrameReader;
using korvane::host::Hello;
using korvane::host::Parcel;
using korvane::host::UniqueFd;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  // The first byte says how large the pieces are; however the stream is cut, the frames are alike.
  const std::size_t piece = std::size_t{data[0]} + 1;
  ++data;
  --size;
  FrameReader whole;
  FrameReader cut;
  whole.feed(data, size);
  for (std::size_t i = 0; i < size; i += piece) {
    cut.feed(data + i, size - i < piece ? size - i : piece);
  }
  while (const auto frame = whole.next()) {
    fuzz::require(cut.next() == frame);
    Hello::decode(Parcel(*frame));
    EventBundle::decode(Parcel(*frame));
  }
  fuzz::require(!cut.next());

  // A peer that sends the stream and goes away: reading ends.
  int ends[2];
  fuzz::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  [[maybe_unused]] const ssize_t sent = send(writer.get(), data, size, MSG_NOSIGNAL);
  writer.reset();
  FrameReader frames;
  while (korvane::host::read_frame(reader.get(), frames, -1)) {
  }
  return 0;
}
