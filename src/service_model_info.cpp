#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::enter;
using svcmgr::failure_code;
using svcmgr::HeapText;
using svcmgr::kInvalidParameter;
using svcmgr::kModelTextLimit;
using svcmgr::require;
using svcmgr::Site;

namespace {

using TextField = HeapText korvane_svcmgr_ai_model_info_s::*;

int set_text(const Site &site, korvane_svcmgr_ai_model_info_h info, TextField field,
             const char *text) try {
  enter(site);
  require(site, kInvalidParameter, info, text);
  info->*field = svcmgr::copy_text(text, kModelTextLimit);
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

int get_text(const Site &site, korvane_svcmgr_ai_model_info_h info, TextField field, char **text,
             const char *unset_message) try {
  enter(site);
  require(site, kInvalidParameter, info, text);
  const HeapText &value = info->*field;
  if (value == nullptr) {
    LOG_ERROR_AT(site, "%s", unset_message);
    return SVCMGR_ERROR_INVALID_OPERATION;
  }
  *text = svcmgr::copy_text(value.get(), kModelTextLimit).release();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

}  // namespace

int korvane_svcmgr_ai_model_info_create(korvane_svcmgr_ai_model_info_h *info) {
  return svcmgr::create_handle(HERE, info, "Failed to create korvane_svcmgr_ai_model_info_h.");
}

int korvane_svcmgr_ai_model_info_destroy(korvane_svcmgr_ai_model_info_h info) {
  return svcmgr::destroy_handle(HERE, info);
}

int korvane_svcmgr_ai_model_info_set_id(korvane_svcmgr_ai_model_info_h info, const char *id) {
  return set_text(HERE, info, &korvane_svcmgr_ai_model_info_s::id, id);
}

int korvane_svcmgr_ai_model_info_get_id(korvane_svcmgr_ai_model_info_h info, char **id) {
  return get_text(HERE, info, &korvane_svcmgr_ai_model_info_s::id, id,
                  "handle has wrong data");  // sic
}

int korvane_svcmgr_ai_model_info_set_version(korvane_svcmgr_ai_model_info_h info,
                                             const char *version) {
  return set_text(HERE, info, &korvane_svcmgr_ai_model_info_s::version, version);
}

int korvane_svcmgr_ai_model_info_get_version(korvane_svcmgr_ai_model_info_h info, char **version) {
  return get_text(HERE, info, &korvane_svcmgr_ai_model_info_s::version, version,
                  "Handle has wrong data");
}

int korvane_svcmgr_ai_model_info_set_title(korvane_svcmgr_ai_model_info_h info, const char *title) {
  return set_text(HERE, info, &korvane_svcmgr_ai_model_info_s::title, title);
}

int korvane_svcmgr_ai_model_info_get_title(korvane_svcmgr_ai_model_info_h info, char **title) {
  return get_text(HERE, info, &korvane_svcmgr_ai_model_info_s::title, title,
                  "Handle has wrong data");
}

int korvane_svcmgr_ai_model_info_set_description(korvane_svcmgr_ai_model_info_h info,
                                                 const char *description) {
  return set_text(HERE, info, &korvane_svcmgr_ai_model_info_s::description, description);
}

int korvane_svcmgr_ai_model_info_get_description(korvane_svcmgr_ai_model_info_h info,
                                                 char **description) {
  return get_text(HERE, info, &korvane_svcmgr_ai_model_info_s::description, description,
                  "Handle has wrong data");
}
