#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::enter;
using svcmgr::EntryLog;
using svcmgr::failure_code;
using svcmgr::kInvalidParameter;
using svcmgr::kInvalidParameterLoud;
using svcmgr::require;

int korvane_svcmgr_agent_list_create(korvane_svcmgr_agent_list_h *list) try {
  enter(HERE, EntryLog::kInfo);
  require(HERE, kInvalidParameterLoud, list);
  *list = svcmgr::make_record<korvane_svcmgr_agent_list_s>(
      HERE, "Failed to create korvane_svcmgr_agent_list_s.");
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_agent_list_destroy(korvane_svcmgr_agent_list_h list) try {
  enter(HERE, EntryLog::kInfo);
  require(HERE, kInvalidParameterLoud, list);
  delete list;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_agent_list_get_size(korvane_svcmgr_agent_list_h list, int *size) try {
  enter(HERE);
  require(HERE, kInvalidParameter, list, size);
  *size = static_cast<int>(list->names.size());
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_agent_list_add(korvane_svcmgr_agent_list_h list, const char *agent) try {
  enter(HERE);
  require(HERE, kInvalidParameterLoud, list, agent);
  list->names.push_back(svcmgr::copy_text(agent));
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_agent_list_get(korvane_svcmgr_agent_list_h list, int index, char **agent) try {
  enter(HERE);
  require(HERE, kInvalidParameterLoud, list, agent);
  *agent = svcmgr::copy_text(svcmgr::entry_at(HERE, list->names, index).get()).release();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}
