// The platform log, on standard error. KORVANE_LOG names the lowest level written: debug, info,
// error (the default) or none.
#include <sys/uio.h>
#include <unistd.h>

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

int lowest_priority() {
  const char *setting = std::getenv("KORVANE_LOG");
  for (const Level &level : kLevels) {
    if (setting != nullptr && setting == level.name) return level.priority;
  }
  return 6;
}

char letter_of(int priority) {
  return priority <= 3 ? 'D' : priority <= 5 ? 'I' : 'E';
}

iovec part(std::string_view text) {
  return {const_cast<char *>(text.data()), text.size()};
}

}  // namespace

int dlog_print(int priority, const char *tag, const char *format, ...) {
  static const int lowest = lowest_priority();
  if (priority < lowest || tag == nullptr || format == nullptr) return 0;
  const int caller_errno = errno;
  char message[8192] = "";
  va_list values;
  va_start(values, format);
  std::vsnprintf(message, sizeof(message), format, values);
  va_end(values);
  const char letter = letter_of(priority);
  const iovec line[] = {part({&letter, 1}), part("/"),     part(tag),
                        part(": "),         part(message), part("\n")};
  // One call, so that the lines of several threads and processes do not mix.
  [[maybe_unused]] const ssize_t written =
      writev(STDERR_FILENO, line, static_cast<int>(std::size(line)));
  errno = caller_errno;
  return 0;
}
