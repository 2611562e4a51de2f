#include "korvane_svcmgr.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "UpdateStatusEventHandler.h"
#include "api_frame.h"
#include "app.h"
#include "heap_text.h"
#include "log.h"
#include "platform_handles.h"
#include "qel-section.h"

using svcmgr::connected_handler;
using svcmgr::enter;
using svcmgr::failure_code;
using svcmgr::HeapText;
using svcmgr::kNullParameter;
using svcmgr::require;
using svcmgr::require_service_api_level;

namespace {

/** Sent in place of a licence while the QEL scheme is disabled. */
constexpr const char *kQelDisabledLicense = "SVCMGR_ERROR_QEL_DISABLED";

/** A reply of the service manager that has an error code and a log line of its own. */
struct ReplyRow {
  int reply;
  const char *message;
};

constexpr ReplyRow kUpdateReplies[] = {
    {SVCMGR_ERROR_QEL_DISABLED, "QEL is disabled"},
    {SVCMGR_ERROR_PERMISSION_DENIED, "Permission denied"},
};

constexpr ReplyRow kUpdateWithListReplies[] = {
    {SVCMGR_ERROR_PERMISSION_DENIED, "Permission denied"},
    {SVCMGR_ERROR_UPDATE_IN_PROGRESS, "Service Manager is progressing updates"},
    {SVCMGR_ERROR_QEL_DISABLED, "QEL is disabled"},
};

template <std::size_t Count>
int update_result(const svcmgr::Site &site, int reply, const ReplyRow (&rows)[Count]) {
  if (reply == 0) return SVCMGR_ERROR_NONE;
  for (const ReplyRow &row : rows) {
    if (reply != row.reply) continue;
    LOG_INFO_AT(site, "%s", row.message);
    return row.reply;
  }
  LOG_INFO_AT(site, "Failed to invoke_request_update. err = %d", reply);
  return SVCMGR_ERROR_NOT_CONNECTED;
}

/** The application's installation directory, ending with a slash; null when it is not known. */
HeapText installation_directory() {
  constexpr std::size_t kResourceNameLength = sizeof("res/") - 1;
  const HeapText resources(app_get_resource_path());
  if (resources == nullptr) return HeapText();
  const std::size_t length = std::strlen(resources.get());
  return svcmgr::copy_text(resources.get(),
                           length < kResourceNameLength ? length : length - kResourceNameLength);
}

}  // namespace

int get_svcmgr_api_level() {
  package_info_h handle = nullptr;
  const int error = package_info_create(SVCMGR_APP_ID, &handle);
  const svcmgr::PackageInfoOwner package(handle);
  if (error != 0 || package == nullptr) return -1;
  char *version = nullptr;
  package_info_get_version(package.get(), &version);  // only the text counts
  return convert_version_to_api_level(HeapText(version).get());
}

int convert_version_to_api_level(const char *version) {
  if (version == nullptr) return -1;
  int major = 0;
  int minor = 0;
  std::sscanf(version, "%d.%d", &major, &minor);
  const std::int64_t value = std::int64_t{major} * 10000 + minor;
  if (value > 20002) return 11;
  return value >= 10007 ? 8 : -1;
}

int korvane_svcmgr_connect(korvane_svcmgr_connection_cb callback, void *user_data) try {
  enter(HERE);
  require(HERE, kNullParameter, callback);
  SvcMgrAppProxyHandler &handler = SvcMgrAppProxyHandler::GetInstance();
  if (handler.IsConnected()) {
    LOG_ERROR("already connected\n");
    return SVCMGR_ERROR_ALREADY_CONNECTED;
  }
  const int error = handler.Connect(callback, user_data);
  if (error != SVCMGR_ERROR_NONE) LOG_ERROR("connection result = [%d]", error);
  return error;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_disconnect(void) try {
  enter(HERE);
  SvcMgrAppProxyHandler &handler = SvcMgrAppProxyHandler::GetInstance();
  if (handler.IsConnected()) handler.Disconnect();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_get_client_api_level(int *level) try {
  enter(HERE);
  require(HERE, kNullParameter, level);
  const HeapText root = installation_directory();
  LOG_DEBUG("Start to find highest API level in %s", root ? root.get() : "(null)");
  const std::unique_ptr<qel_section_s, svcmgr::Free> section(qel_section_get_latest(root.get()));
  if (section == nullptr) {
    LOG_INFO("Failed to get latest QEL section.\n");
    return SVCMGR_ERROR_NOT_SUPPORTED;
  }
  *level = section->api_level;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_get_agent_api_level(int *level) try {
  enter(HERE);
  require(HERE, kNullParameter, level);
  const int reply = connected_handler(HERE).get_agent_api_level();
  if (reply == SVCMGR_ERROR_QEL_DISABLED) {
    LOG_INFO("QEL is disabled");
    return SVCMGR_ERROR_QEL_DISABLED;
  }
  if (reply == -1) {
    LOG_INFO("invalid api level");
    return SVCMGR_ERROR_INVALID_API_LEVEL;
  }
  LOG_DEBUG("agent level : %d", reply);
  *level = reply;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_get_license_fulltext(char **license) try {
  enter(HERE);
  require(HERE, kNullParameter, license);
  const std::string text = connected_handler(HERE).get_license();
  if (text.empty()) {
    LOG_INFO("can't get agent license");
    return SVCMGR_ERROR_NONE;
  }
  if (text == kQelDisabledLicense) {
    LOG_INFO("QEL is disabled");
    return SVCMGR_ERROR_QEL_DISABLED;
  }
  LOG_DEBUG("agent license : %s", text.c_str());
  *license = svcmgr::copy_text(text.c_str()).release();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_request_update(void) try {
  enter(HERE);
  return update_result(HERE, connected_handler(HERE).request_update(), kUpdateReplies);
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_request_update_with_list(korvane_svcmgr_agent_list_h list, void *reserved) try {
  enter(HERE);
  require_service_api_level(11);
  require(HERE, kNullParameter, list);
  const int reply = connected_handler(HERE).request_update_with_list(list, reserved);
  return update_result(HERE, reply, kUpdateWithListReplies);
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_set_update_status_cb(korvane_svcmgr_update_status_cb callback,
                                        void *user_data) try {
  enter(HERE);
  require(HERE, kNullParameter, callback);
  UpdateStatusEventHandler::GetInstance().SetEventCallback(callback, user_data);
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_unset_update_status_cb(void) try {
  enter(HERE);
  UpdateStatusEventHandler::GetInstance().UnsetEventCallback();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_is_being_updated(bool *is_being_updated) try {
  enter(HERE);
  require(HERE, kNullParameter, is_being_updated);
  connected_handler(HERE);
  *is_being_updated = UpdateObserver().IsBeingUpdated();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}
