#include "errors.h"

#include <korvane_svcmgr.h>

#include <algorithm>
#include <iterator>

namespace korvane::svcmgrctl {

namespace {

struct Entry {
  int code;
  const char *name;
  const char *meaning;
};

#define ENTRY(name, meaning) \
  { name, #name, meaning }

constexpr Entry kErrors[] = {
    ENTRY(SVCMGR_ERROR_NONE, "success"),
    ENTRY(SVCMGR_ERROR_CONNECTION_FAILED,
          "the connection could not be started; the service manager does not run"),
    ENTRY(SVCMGR_ERROR_OUT_OF_MEMORY, "memory ran out"),
    ENTRY(SVCMGR_ERROR_PERMISSION_DENIED, "the platform or the service manager denies it"),
    ENTRY(SVCMGR_ERROR_INVALID_PARAMETER,
          "an argument is not valid, or no agent provides the category"),
    ENTRY(SVCMGR_ERROR_NO_SPACE, "the service manager has no space left"),
    ENTRY(SVCMGR_ERROR_INVALID_OPERATION,
          "the operation failed in a way that has no code of its own"),
    ENTRY(SVCMGR_ERROR_ALREADY_CONNECTED, "the library is connected already"),
    ENTRY(SVCMGR_ERROR_NOT_CONNECTED, "the library is not connected, or an update request failed"),
    ENTRY(SVCMGR_ERROR_NOT_SUPPORTED,
          "the service manager is not installed, or the client API level cannot be found"),
    ENTRY(SVCMGR_ERROR_INVALID_API_LEVEL, "the agent API level could not be obtained"),
    ENTRY(SVCMGR_ERROR_QEL_DISABLED, "the QEL scheme is disabled on the device"),
    ENTRY(SVCMGR_ERROR_NOT_SUPPORTED_VERSION, "the installed service manager is too old for this"),
    ENTRY(SVCMGR_ERROR_SERVICE_CODE_6, "the service manager ended the request with its result 6"),
    ENTRY(SVCMGR_ERROR_OUT_OF_INDEX, "an index lies outside its list"),
    ENTRY(SVCMGR_ERROR_UPDATE_IN_PROGRESS, "the service manager is already updating"),
};

constexpr Entry kConnectionStates[] = {
    ENTRY(SVCMGR_CONNECTION_CONNECTED, "connected"),
    ENTRY(SVCMGR_CONNECTION_DISCONNECTED, "disconnected: the connection was lost"),
    ENTRY(SVCMGR_CONNECTION_REJECTED, "rejected: the service manager refused the connection"),
};

constexpr Entry kUpdateStatuses[] = {
    ENTRY(SVCMGR_UPDATE_STATUS_STARTED, "update started"),
    ENTRY(SVCMGR_UPDATE_STATUS_COMPLETED, "update completed"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_CODE_1, "update failed with failure code 1"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_CODE_3, "update failed with failure code 3"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_CODE_7, "update failed with failure code 7"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_CODE_10, "update failed with failure code 10"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_OTHER, "update failed with a code that has no name"),
    ENTRY(SVCMGR_UPDATE_STATUS_FAILED_CODE_13, "update failed with failure code 13"),
};

constexpr Entry kModelStates[] = {
    ENTRY(SVCMGR_AI_STATE_START, "model update started"),
    ENTRY(SVCMGR_AI_STATE_COMPLETED, "model update completed"),
    ENTRY(SVCMGR_AI_STATE_FAILED, "model update failed"),
};

#undef ENTRY

template <std::size_t kSize>
CodeText describe(const Entry (&table)[kSize], int code) {
  const Entry *entry = std::find_if(std::begin(table), std::end(table),
                                    [code](const Entry &known) { return known.code == code; });
  if (entry == std::end(table)) return {code, "UNKNOWN", "a code that has no name"};
  return {code, entry->name, entry->meaning};
}

}  // namespace

Json CodeText::to_json() const {
  return {{"name", name}, {"code", code}, {"meaning", meaning}};
}

CodeText describe_error(int code) {
  return describe(kErrors, code);
}

CodeText describe_connection_state(int state) {
  return describe(kConnectionStates, state);
}

CodeText describe_update_status(int status) {
  return describe(kUpdateStatuses, status);
}

CodeText describe_model_state(int state) {
  return describe(kModelStates, state);
}

void check(int code) {
  if (code != SVCMGR_ERROR_NONE) throw Failure(describe_error(code));
}

}  // namespace korvane::svcmgrctl
