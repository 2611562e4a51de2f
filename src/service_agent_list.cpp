#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::enter;
using svcmgr::failure_code;
using svcmgr::kInvalidParameterLoud;
using svcmgr::require;

int korvane_svcmgr_agent_list_create(korvane_svcmgr_agent_list_h *list) {
  return svcmgr::create_handle(HERE, list, "Failed to create korvane_svcmgr_agent_list_s.");
}

int korvane_svcmgr_agent_list_destroy(korvane_svcmgr_agent_list_h list) {
  return svcmgr::destroy_handle(HERE, list);
}

int korvane_svcmgr_agent_list_get_size(korvane_svcmgr_agent_list_h list, int *size) {
  return svcmgr::get_list_size(HERE, list, &korvane_svcmgr_agent_list_s::names, size);
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
