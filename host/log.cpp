// The platform log, on standard error. KORVANE_LOG names the lowest level written: debug, info,
// error (the default) or none.
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "dlog.h"

namespace {

struct Level {
  std::string_view name;
  int priority;
};

constexpr Level kLevels[] = {{"debug", 3}, {"info", 4}, {"error", 6}, {"none", 7}};
constexpr int kDefaultPriority = 6;

char letter_of(int priority) {
  return priority <= 3 ? 'D' : priority <= 5 ? 'I' : 'E';
}

/** Length of the colour sequence at the start of a text; 0 when there is none. */
std::size_t colour_length(std::string_view text) {
  if (text.substr(0, 2) != "\x1b[") return 0;
  const std::size_t end = text.find_first_not_of("0123456789;", 2);
  return end != std::string_view::npos && text[end] == 'm' ? end + 1 : 0;
}

/** Length of the control character at the start of a text; 0 when there is none. */
std::size_t control_length(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) == 0xC2 && text.size() > 1 && byte(1) < 0xA0) return 2;
  const bool is_control = byte(0) < 0x20 || byte(0) == 0x7F;
  return is_control && text[0] != '\n' && text[0] != '\t' ? 1 : 0;
}

/**
 * Replaces control characters, since messages can contain untrusted text. Colours stay on a
 * terminal.
 */
void make_harmless(char *message, bool keeps_colours) {
  char *to = message;
  for (std::string_view rest = message; !rest.empty();) {
    std::size_t length = colour_length(rest);
    if (length > 0) {
      if (keeps_colours) to = std::copy_n(rest.data(), length, to);
    } else {
      length = control_length(rest);
      *to++ = length > 0 ? '?' : rest[0];
      length = std::max<std::size_t>(length, 1);
    }
    rest.remove_prefix(length);
  }
  *to = '\0';
}

iovec part(std::string_view text) {
  return {const_cast<char *>(text.data()), text.size()};
}

/** The status of standard error; all zeroes when it is closed. */
struct stat standard_error() {
  struct stat status = {};
  if (fstat(STDERR_FILENO, &status) != 0) status = {};
  return status;
}

/** The status when the platform was loaded. Another file may use the descriptor since then. */
const struct stat first_standard_error = standard_error();

bool is_standard_error_still() {
  const struct stat now = standard_error();
  return now.st_mode != 0 && now.st_dev == first_standard_error.st_dev &&
         now.st_ino == first_standard_error.st_ino;
}

/** Blocks SIGPIPE in the calling thread, so that writing to a closed pipe does not raise it. */
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  PipeSignalHeld(const PipeSignalHeld &) = delete;
  PipeSignalHeld &operator=(const PipeSignalHeld &) = delete;
  ~PipeSignalHeld() {
    const timespec at_once = {};
    while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &at_once) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_;
  sigset_t before_;
  bool was_pending_;
};

void write_line(char letter, const char *tag, char *message, bool is_cut) {
  const bool keeps_colours = isatty(STDERR_FILENO) != 0;
  make_harmless(message, keeps_colours);
  const char *end = is_cut && keeps_colours ? "\x1b[0m\n" : "\n";
  const iovec line[] = {part({&letter, 1}), part("/"),     part(tag),
                        part(": "),         part(message), part(end)};
  if (!is_standard_error_still()) return;
  const PipeSignalHeld held;
  // A single call keeps the lines of several threads and processes apart.
  [[maybe_unused]] const ssize_t written =
      writev(STDERR_FILENO, line, static_cast<int>(std::size(line)));
}

/** What KORVANE_LOG asks for; an unknown word is reported and counts as error. */
int lowest_priority() {
  const char *setting = std::getenv("KORVANE_LOG");
  if (setting == nullptr || *setting == '\0') return kDefaultPriority;
  for (const Level &level : kLevels) {
    if (setting == level.name) return level.priority;
  }
  char message[128] = "";
  std::snprintf(message, sizeof(message),
                "KORVANE_LOG is \"%.40s\", not debug, info, error or none", setting);
  write_line('E', "KORVANE_HOST", message, false);
  return kDefaultPriority;
}

}  // namespace

int dlog_print(int priority, const char *tag, const char *format, ...) {
  static const int lowest = lowest_priority();
  if (priority < lowest || tag == nullptr || format == nullptr) return 0;
  const int caller_errno = errno;
  char message[8192] = "";
  va_list values;
  va_start(values, format);
  const int length = std::vsnprintf(message, sizeof(message), format, values);
  va_end(values);
  write_line(letter_of(priority), tag, message, length >= static_cast<int>(sizeof(message)));
  errno = caller_errno;
  return 0;
}
