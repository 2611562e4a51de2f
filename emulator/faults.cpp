#include "faults.h"

#include <algorithm>

namespace korvane::emulator {

const std::vector<DelegateFault> &delegate_faults() {
  static const std::vector<DelegateFault> table = {
      {"wrong-seq", [](DelegateEvent &event) { event.block.sequence ^= 0x40000000; }},
      {"wrong-id", [](DelegateEvent &event) { event.block.id ^= 0x40; }},
      {"twice", [](DelegateEvent &event) { event.copies = 2; }},
      {"truncated",
       [](DelegateEvent &event) {
         event.payload.resize(std::min<std::size_t>(event.payload.size(), 2));
       }},
      {"huge-count",
       [](DelegateEvent &event) {
         const host::Bytes huge = {0xFF, 0xFF, 0xFF, 0x7F};
         std::copy(huge.begin(), huge.end(), event.payload.begin());
       }},
  };
  return table;
}

const std::vector<Garbage> &garbage_kinds() {
  static const std::vector<Garbage> table = {
      {"half-frame", {100, 0, 0, 0, 1, 0, 0, 0, 1}},
      {"oversized", {0xFF, 0xFF, 0xFF, 0xFF}},
      {"rubbish", {'G', 'E', 'T', ' ', '/', ' ', 'H', 'T', 'T', 'P', '\r', '\n', '\r', '\n'}},
      {"empty", {0, 0, 0, 0}},
  };
  return table;
}

}  // namespace korvane::emulator
