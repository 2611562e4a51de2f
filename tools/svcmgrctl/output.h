#ifndef KORVANE_SVCMGRCTL_OUTPUT_H_
#define KORVANE_SVCMGRCTL_OUTPUT_H_

#include <string>

#include "errors.h"

namespace korvane::svcmgrctl {

/** The output of a command: lines of text, or one JSON object per line. */
class Output {
 public:
  Output(std::string command, bool json) : command_(std::move(command)), json_(json) {}

  bool is_json() const { return json_; }

  /**
   * Writes the text or the JSON object immediately. An empty text is not written. Arbitrary bytes
   * are safe.
   */
  void report(const std::string &human, const Json &json) const;

  /** Reports a library code; kind is the name of the event in JSON. */
  void event(const char *kind, const CodeText &text) const;
  /** Reports a connection event. Marks events that the library does not report to applications. */
  void connection_event(int state, bool is_reported) const;

  /** The final output of a successful command. Adds the member ok to the front of result. */
  void succeed(const std::string &human, const Json &result = Json::object()) const;

  void fail(const CodeText &error) const;

  /** The text that fail() writes, and its descriptor, for use in a signal handler. */
  std::string failure_text(const CodeText &error) const;
  int failure_descriptor() const;

  /** Writes a text to the terminal unchanged and without a line feed. */
  void draw(const std::string &text) const;

 private:
  std::string command_;
  bool json_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_OUTPUT_H_
