#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::check_installed;
using svcmgr::enter;
using svcmgr::failure_code;
using svcmgr::kInvalidParameterLoud;
using svcmgr::require;
using svcmgr::Site;

namespace {

using NumberField = int korvane_svcmgr_ai_progress_s::*;

int set_number(const Site &site, korvane_svcmgr_ai_progress_h progress, NumberField field,
               int value) try {
  LOG_DEBUG_AT(site, "set [%d]", value);
  check_installed(site);
  require(site, kInvalidParameterLoud, progress);
  progress->*field = value;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

int get_number(const Site &site, korvane_svcmgr_ai_progress_h progress, NumberField field,
               int *value) try {
  enter(site);
  require(site, kInvalidParameterLoud, progress, value);
  *value = progress->*field;
  LOG_DEBUG_AT(site, "get [%d]", *value);
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

}  // namespace

int korvane_svcmgr_ai_progress_create(korvane_svcmgr_ai_progress_h *progress) try {
  LOG_DEBUG("create progress");
  check_installed(HERE);
  require(HERE, kInvalidParameterLoud, progress);
  *progress = svcmgr::make_record<korvane_svcmgr_ai_progress_s>(
      HERE, "Failed to create update status handle.");
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_ai_progress_destroy(korvane_svcmgr_ai_progress_h progress) try {
  LOG_DEBUG("destroy progress");
  check_installed(HERE);
  require(HERE, kInvalidParameterLoud, progress);
  delete progress;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

#define PROGRESS_NUMBER(field)                                                                    \
  int korvane_svcmgr_ai_progress_set_##field(korvane_svcmgr_ai_progress_h progress, int field) {  \
    return set_number(HERE, progress, &korvane_svcmgr_ai_progress_s::field, field);               \
  }                                                                                               \
  int korvane_svcmgr_ai_progress_get_##field(korvane_svcmgr_ai_progress_h progress, int *field) { \
    return get_number(HERE, progress, &korvane_svcmgr_ai_progress_s::field, field);               \
  }
PROGRESS_NUMBER(state)
PROGRESS_NUMBER(index)
PROGRESS_NUMBER(count)
PROGRESS_NUMBER(percentage)
