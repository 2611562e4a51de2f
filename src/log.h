/**
 * Log macros of the library. Each line names a file, function and source line.
 *
 * LOG_DEBUG, LOG_INFO and LOG_ERROR take a printf format and its values, and
 * name the function that contains them. The _AT forms name a given Site: shared
 * code logs under the name of its caller. errno is left unchanged for %m.
 */
#ifndef KORVANE_SVCMGR_LOG_H_
#define KORVANE_SVCMGR_LOG_H_

#include "dlog.h"

namespace svcmgr {

/** The place in the source that a log line names. */
struct Site {
  const char *file;
  const char *function;
  int line;
};

constexpr const char *base_name(const char *path) {
  const char *name = path;
  for (; *path != '\0'; ++path) {
    if (*path == '/') name = path + 1;
  }
  return name;
}

/** Never called: makes the compiler check the format against the values. */
__attribute__((format(printf, 1, 2))) inline void check_format(const char *, ...) {}

template <typename... Values>
void write_log(int priority, const char *tag, const char *format, const Site &site,
               const char * /*message, part of format*/, Values... values) {
  dlog_print(priority, tag, format, site.file, site.function, site.line, values...);
}

}  // namespace svcmgr

#define HERE (::svcmgr::Site{::svcmgr::base_name(__FILE__), __func__, __LINE__})

#define LOG_FIRST_(first, ...) first
#define LOG_LINE_(priority, tag, before, after, site, ...)                                     \
  do {                                                                                         \
    if (false) ::svcmgr::check_format(__VA_ARGS__);                                            \
    ::svcmgr::write_log(priority, tag, before "%s: %s(%d) > " LOG_FIRST_(__VA_ARGS__, ) after, \
                        site, __VA_ARGS__);                                                    \
  } while (false)

#define LOG_TAG_ "SERVICE_MANAGER_CLIENT"
#define LOG_DEBUG_AT(site, ...) LOG_LINE_(3, LOG_TAG_, " ", "", site, __VA_ARGS__)
#define LOG_INFO_AT(site, ...) LOG_LINE_(4, LOG_TAG_, "\033[0;32m ", "\033[0;m", site, __VA_ARGS__)
#define LOG_ERROR_AT(site, ...) LOG_LINE_(6, LOG_TAG_, "\033[0;31m ", "\033[0;m", site, __VA_ARGS__)

#define LOG_DEBUG(...) LOG_DEBUG_AT(HERE, __VA_ARGS__)
#define LOG_INFO(...) LOG_INFO_AT(HERE, __VA_ARGS__)
#define LOG_ERROR(...) LOG_ERROR_AT(HERE, __VA_ARGS__)

/** The proxy's own log: always errors, named after the remote operation, without colours. */
#define LOG_PROXY_ERROR(operation, ...)  \
  LOG_LINE_(6, "RPC_PORT_PROXY", "", "", \
            (::svcmgr::Site{::svcmgr::base_name(__FILE__), operation, __LINE__}), __VA_ARGS__)

#endif  // KORVANE_SVCMGR_LOG_H_
