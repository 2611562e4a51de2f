#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "text.h"

namespace korvane::svcmgrctl {

namespace {

constexpr std::size_t kUsualWidth = 80;

void write_now(std::FILE *stream, const std::string &text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

std::string human_line(const std::string &text) {
  const std::string line = encode_utf8(printable(decode_utf8(text)));
  return line.back() == '\n' ? line : line + '\n';
}

JsonObject outcome(bool ok) {
  JsonObject object;
  object.add("ok", ok);
  return object;
}

}  // namespace

void Output::report(const std::string &human, const JsonObject &json) const {
  if (json_) {
    write_now(stdout, json.text() + '\n');
  } else if (!human.empty()) {
    write_now(stdout, human_line(human));
  }
}

void Output::event(const char *kind, const CodeText &text) const {
  JsonObject object;
  object.add("event", kind);
  text.add_to(object);
  report(text.meaning, object);
}

void Output::succeed(const std::string &human, const JsonObject &result) const {
  report(human, outcome(true).merge(result));
}

void Output::fail(const CodeText &error) const {
  write_now(json_ ? stdout : stderr, failure_text(error));
}

std::string Output::failure_text(const CodeText &error) const {
  if (!json_) {
    return human_line("svcmgrctl: " + command_ + ": " + error.name + " (" +
                      std::to_string(error.code) + "): " + error.meaning);
  }
  JsonObject description;
  error.add_to(description);
  return outcome(false).add("command", command_).add("error", description).text() + '\n';
}

int Output::failure_descriptor() const {
  return json_ ? STDOUT_FILENO : STDERR_FILENO;
}

std::optional<std::size_t> Output::terminal_width() const {
  if (json_ || isatty(STDOUT_FILENO) == 0) return std::nullopt;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualWidth;
  return size.ws_col;
}

void Output::draw(const std::string &text) const {
  write_now(stdout, text);
}

}  // namespace korvane::svcmgrctl
