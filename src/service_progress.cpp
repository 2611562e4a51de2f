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

int korvane_svcmgr_ai_progress_set_state(korvane_svcmgr_ai_progress_h progress, int state) {
  return set_number(HERE, progress, &korvane_svcmgr_ai_progress_s::state, state);
}

int korvane_svcmgr_ai_progress_get_state(korvane_svcmgr_ai_progress_h progress, int *state) {
  return get_number(HERE, progress, &korvane_svcmgr_ai_progress_s::state, state);
}

int korvane_svcmgr_ai_progress_set_index(korvane_svcmgr_ai_progress_h progress, int index) {
  return set_number(HERE, progress, &korvane_svcmgr_ai_progress_s::index, index);
}

int korvane_svcmgr_ai_progress_get_index(korvane_svcmgr_ai_progress_h progress, int *index) {
  return get_number(HERE, progress, &korvane_svcmgr_ai_progress_s::index, index);
}

int korvane_svcmgr_ai_progress_set_count(korvane_svcmgr_ai_progress_h progress, int count) {
  return set_number(HERE, progress, &korvane_svcmgr_ai_progress_s::count, count);
}

int korvane_svcmgr_ai_progress_get_count(korvane_svcmgr_ai_progress_h progress, int *count) {
  return get_number(HERE, progress, &korvane_svcmgr_ai_progress_s::count, count);
}

int korvane_svcmgr_ai_progress_set_percentage(korvane_svcmgr_ai_progress_h progress,
                                              int percentage) {
  return set_number(HERE, progress, &korvane_svcmgr_ai_progress_s::percentage, percentage);
}

int korvane_svcmgr_ai_progress_get_percentage(korvane_svcmgr_ai_progress_h progress,
                                              int *percentage) {
  return get_number(HERE, progress, &korvane_svcmgr_ai_progress_s::percentage, percentage);
}
