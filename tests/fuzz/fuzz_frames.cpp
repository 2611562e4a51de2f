// The socket frames of the workstation platform, from arbitrary bytes that arrive in pieces.
#include <cstdlib>

#include "events/event_bundle.h"
#include "fuzz_support.h"
#include "ports/rpc_port_handles.h"
#include "ports/rpc_port_protocol.h"

using namespace korvane::host;

namespace {

/** Reads values of every type in turn until no more can be read. */
void read_values(const Bytes &frame) {
  rpc_port_parcel_s parcel{Parcel(frame)};
  int number = 0;
  bool truth = false;
  char *text = nullptr;
  while (rpc_port_parcel_read_string(&parcel, &text) == 0 ||
         rpc_port_parcel_read_array_count(&parcel, &number) == 0 ||
         rpc_port_parcel_read_bool(&parcel, &truth) == 0) {
    std::free(std::exchange(text, nullptr));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  // The first byte is the size of the pieces. The frames do not depend on it.
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
    read_values(*frame);
  }
  fuzz::require(!cut.next());
  return 0;
}
