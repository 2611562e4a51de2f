#include "errors.h"

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
  return {code, korvane_svcmgr_error_name(code), korvane_svcmgr_error_text(code)};
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

Failure::Failure(korvane_svcmgr_error_e code, std::string meaning) : Failure(describe_error(code)) {
  text_.meaning = std::move(meaning);
}

}  // namespace korvane::svcmgrctl
