/**
 * The frame that every exported function runs in.
 *
 * An exported function reads
 *
 *   int korvane_svcmgr_example(int *value) try {
 *     enter(HERE);
 *     require(HERE, kNullParameter, value);
 *     ... what is special to it ...
 *     return SVCMGR_ERROR_NONE;
 *   } catch (...) {
 *     return failure_code(HERE);
 *   }
 *
 * The checks throw ApiFailure after logging; failure_code is the one place
 * where exceptions become error codes.
 */
#ifndef KORVANE_SVCMGR_API_FRAME_H_
#define KORVANE_SVCMGR_API_FRAME_H_

#include <exception>

#include "korvane_svcmgr.h"
#include "log.h"

class SvcMgrAppProxyHandler;

namespace svcmgr {

/** Ends an exported function with an error code. */
struct ApiFailure {
  int code;
};

/** How an exported function logs its entry. */
enum class EntryLog {
  kDebug,    ///< its name, at debug level
  kInfo,     ///< its name, at info level
  kRequest,  ///< its name between underscores, at info level
};

constexpr const char *kNullParameter = "parameter is NULL!!";
constexpr const char *kInvalidParameter = "Invalid parameter";
constexpr const char *kInvalidParameterLoud = "Invalid parameter!!";

/** Throws SVCMGR_ERROR_NOT_SUPPORTED unless the service manager is installed. */
void check_installed(const Site &site);

/** Logs the entry and checks that the service manager is installed. */
void enter(const Site &site, EntryLog entry_log = EntryLog::kDebug);

/** Throws SVCMGR_ERROR_NOT_SUPPORTED_VERSION unless the service API level is at least required. */
void require_service_api_level(int required);

/** Logs message and throws SVCMGR_ERROR_INVALID_PARAMETER. */
[[noreturn]] void fail_parameter(const Site &site, const char *message);

/** Checks required pointer arguments, in order. */
template <typename... Pointers>
void require(const Site &site, const char *message, Pointers... pointers) {
  if ((!pointers || ...)) fail_parameter(site, message);
}

/** The connection handler; throws SVCMGR_ERROR_NOT_CONNECTED unless it is connected. */
SvcMgrAppProxyHandler &connected_handler(const Site &site);

/** The error code for the exception being handled. */
int failure_code(const Site &site) noexcept;

/** Runs the body of a platform callback. An exception is reported and not passed on. */
template <typename Body, typename Report>
void run_callback(Body body, Report report) noexcept {
  try {
    body();
  } catch (const std::exception &exception) {
    report(exception.what());
  } catch (...) {
    report("unknown exception");
  }
}

}  // namespace svcmgr

/** The service API level: 11, 8, or -1 when the service manager is too old or has no version. */
int get_svcmgr_api_level();

/** The service API level of a version text, which may be null. */
int convert_version_to_api_level(const char *version);

#endif  // KORVANE_SVCMGR_API_FRAME_H_
