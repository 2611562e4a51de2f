#include "api_frame.h"

#include <exception>
#include <new>

#include "SvcMgrAppProxyHandler.h"
#include "platform_handles.h"

namespace svcmgr {

namespace {

constexpr int kPackageNotInstalled = static_cast<int>(0xFEEB0071U);

}  // namespace

void check_installed(const Site &site) {
  package_info_h package = nullptr;
  const int error = package_info_create(SVCMGR_APP_ID, &package);
  PackageInfoOwner(package).reset();
  if (error == kPackageNotInstalled) {
    LOG_ERROR_AT(site, "Not supported");
    throw ApiFailure{SVCMGR_ERROR_NOT_SUPPORTED};
  }
}

void enter(const Site &site, EntryLog entry_log) {
  switch (entry_log) {
    case EntryLog::kDebug:
      LOG_DEBUG_AT(site, "%s", site.function);
      break;
    case EntryLog::kInfo:
      LOG_INFO_AT(site, "%s", site.function);
      break;
    case EntryLog::kRequest:
      LOG_INFO_AT(site, "__ %s __", site.function);
      break;
  }
  check_installed(site);
}

void require_service_api_level(int required) {
  if (required > get_svcmgr_api_level()) throw ApiFailure{SVCMGR_ERROR_NOT_SUPPORTED_VERSION};
}

void fail_parameter(const Site &site, const char *message) {
  LOG_ERROR_AT(site, "%s", message);
  throw ApiFailure{SVCMGR_ERROR_INVALID_PARAMETER};
}

SvcMgrAppProxyHandler &connected_handler(const Site &site) {
  SvcMgrAppProxyHandler &handler = SvcMgrAppProxyHandler::GetInstance();
  if (!handler.IsConnected()) {
    LOG_INFO_AT(site, "not initialized");
    throw ApiFailure{SVCMGR_ERROR_NOT_CONNECTED};
  }
  return handler;
}

int failure_code(const Site &site) noexcept {
  try {
    throw;
  } catch (const ApiFailure &failure) {
    return failure.code;
  } catch (const std::bad_alloc &) {
    LOG_ERROR_AT(site, "Out of memory");
    return SVCMGR_ERROR_OUT_OF_MEMORY;
  } catch (const std::exception &exception) {
    LOG_ERROR_AT(site, "Unexpected exception: %s", exception.what());
  } catch (...) {
    LOG_ERROR_AT(site, "Unexpected exception");
  }
  return SVCMGR_ERROR_INVALID_OPERATION;
}

}  // namespace svcmgr
