#include "output.h"

#include <unistd.h>

#include <cstdio>

#include "terminal.h"

namespace korvane::svcmgrctl {

namespace {

void write_now(std::FILE *stream, const std::string &text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

std::string human_line(const std::string &text) {
  const std::string line = printable(text);
  return line.back() == '\n' ? line : line + '\n';
}

/** ASCII only, so that text from the service manager cannot control a terminal. */
std::string json_line(const Json &json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace) + '\n';
}

}  // namespace

void Output::report(const std::string &human, const Json &json) const {
  if (json_) {
    write_now(stdout, json_line(json));
  } else if (!human.empty()) {
    write_now(stdout, human_line(human));
  }
}

void Output::event(const char *kind, const CodeText &text) const {
  Json object = {{"event", kind}};
  object.update(text.to_json());
  report(text.meaning, object);
}

void Output::connection_event(int state, bool is_reported) const {
  CodeText text = describe_connection_state(state);
  if (!is_reported) {
    text.meaning += " (by an update of the service manager; not reported to applications)";
  }
  Json object = {{"event", "connection"}, {"reported", is_reported}};
  object.update(text.to_json());
  report(text.meaning, object);
}

void Output::succeed(const std::string &human, const Json &result) const {
  Json object = {{"ok", true}};
  object.update(result);
  report(human, object);
}

void Output::fail(const CodeText &error) const {
  write_now(json_ ? stdout : stderr, failure_text(error));
}

std::string Output::failure_text(const CodeText &error) const {
  if (!json_) {
    return human_line("svcmgrctl: " + error.name + " (" + std::to_string(error.code) +
                      "): " + error.meaning);
  }
  return json_line({{"ok", false}, {"command", command_}, {"error", error.to_json()}});
}

int Output::failure_descriptor() const {
  return json_ ? STDOUT_FILENO : STDERR_FILENO;
}

void Output::draw(const std::string &text) const {
  write_now(stdout, text);
}

}  // namespace korvane::svcmgrctl
