/** Faults that the emulator injects. */
#ifndef KORVANE_EMULATOR_FAULTS_H_
#define KORVANE_EMULATOR_FAULTS_H_

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "protocol.h"
#include "sockets/frame.h"

namespace korvane::emulator {

/** A delegate event before it is encoded. */
struct DelegateEvent {
  DelegateBlock block;
  std::int32_t result = kDone;
  host::Bytes payload;
  int copies = 1;
};

/** A named way to corrupt a delegate event. */
struct DelegateFault {
  const char *name;
  void (*apply)(DelegateEvent &event);
};

/** Named bytes that are not a valid parcel. */
struct Garbage {
  const char *name;
  host::Bytes bytes;
};

const std::vector<DelegateFault> &delegate_faults();
const std::vector<Garbage> &garbage_kinds();

struct Faults {
  // Valid until changed.
  bool reject = false;
  std::map<Method, std::int32_t> replies;
  std::set<Method> silent;

  // Used once.
  bool crash_at_any = false;
  std::set<Method> crash_at;
  int stray_parcels = 0;
  const DelegateFault *delegate_fault = nullptr;
  std::optional<std::int32_t> update_failure;
  std::optional<std::int32_t> own_result;
  std::optional<std::int32_t> model_failure;

  bool crashes_at(Method method) const { return crash_at_any || crash_at.count(method) != 0; }
  /** The code set for a method, or the given one. */
  std::int32_t reply_of(Method method, std::int32_t otherwise) const {
    const auto reply = replies.find(method);
    return reply == replies.end() ? otherwise : reply->second;
  }
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_FAULTS_H_
