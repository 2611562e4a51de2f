/** Prints a line for every parcel and event. */
#ifndef KORVANE_EMULATOR_TRACE_H_
#define KORVANE_EMULATOR_TRACE_H_

#include <cstdint>
#include <string>

#include "protocol.h"

namespace korvane::emulator {

/** Writes to standard error when enabled. Values missing in a parcel show as "<truncated>". */
class Trace {
 public:
  explicit Trace(bool on) : on_(on) {}

  void request(std::uint64_t connection, const Parcel &parcel) const;
  /** A parcel on the main port; info is the method that it answers, or null. */
  void reply(std::uint64_t connection, const MethodInfo *info, const Parcel &parcel) const;
  /** A parcel on the callback port. */
  void callback(std::uint64_t connection, const Parcel &parcel) const;
  void event(const std::string &name, const std::string &payload, std::size_t reached) const;
  void note(const std::string &text) const;

 private:
  bool on_;
};

/** A text in quotes, on one line, in ASCII. */
std::string quoted(const std::string &text);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_TRACE_H_
