#ifndef KORVANE_SVCMGRCTL_OUTPUT_H_
#define KORVANE_SVCMGRCTL_OUTPUT_H_

#include <string>

#include "errors.h"

namespace korvane::svcmgrctl {

/** Where a command tells what it has to say: lines for people, or one JSON object a line. */
class Output {
 public:
  Output(std::string command, bool json) : command_(std::move(command)), json_(json) {}

  bool is_json() const { return json_; }

  /** Writes the one or the other, at once; an empty human text is nothing. Any bytes are harmless.
   */
  void report(const std::string &human, const Json &json) const;

  /** Tells of a code of the library: an event called kind, in JSON. */
  void event(const char *kind, const CodeText &text) const;
  /** Tells of the connection; what the library does not report to applications is told as such. */
  void connection_event(int state, bool is_reported) const;

  /** The last words of a command that succeeded; result gets the member ok in front. */
  void succeed(const std::string &human, const Json &result = Json::object()) const;

  void fail(const CodeText &error) const;

  /** What fail() writes, and to which descriptor, for those who must write it themselves. */
  std::string failure_text(const CodeText &error) const;
  int failure_descriptor() const;

  /** Writes a text without a line feed to the terminal, as it is. */
  void draw(const std::string &text) const;

 private:
  std::string command_;
  bool json_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_OUTPUT_H_
