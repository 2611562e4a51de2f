#include <memory>

#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::enter;
using svcmgr::EntryLog;
using svcmgr::failure_code;
using svcmgr::kInvalidParameterLoud;
using svcmgr::require;

namespace {

std::unique_ptr<korvane_svcmgr_ai_model_info_s> deep_copy(
    const korvane_svcmgr_ai_model_info_s &source) {
  auto copy = std::make_unique<korvane_svcmgr_ai_model_info_s>();
  for (const auto field :
       {&korvane_svcmgr_ai_model_info_s::id, &korvane_svcmgr_ai_model_info_s::version,
        &korvane_svcmgr_ai_model_info_s::title, &korvane_svcmgr_ai_model_info_s::description}) {
    const svcmgr::HeapText &text = source.*field;
    if (text != nullptr) {
      (*copy).*field = svcmgr::copy_text(text.get(), svcmgr::kModelTextLimit);
    }
  }
  return copy;
}

}  // namespace

int korvane_svcmgr_ai_model_list_create(korvane_svcmgr_ai_model_list_h *list) {
  return svcmgr::create_handle(HERE, list, "Failed to create korvane_svcmgr_ai_model_list_s.");
}

int korvane_svcmgr_ai_model_list_destroy(korvane_svcmgr_ai_model_list_h list) try {
  enter(HERE, EntryLog::kInfo);
  require(HERE, kInvalidParameterLoud, list);
  for (auto &model : list->models) {
    // If the service manager was uninstalled meanwhile, the function refuses and the list itself
    // releases the entry.
    if (korvane_svcmgr_ai_model_info_destroy(model.get()) == SVCMGR_ERROR_NONE) {
      static_cast<void>(model.release());
    }
  }
  delete list;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_ai_model_list_get_size(korvane_svcmgr_ai_model_list_h list, int *size) {
  return svcmgr::get_list_size(HERE, list, &korvane_svcmgr_ai_model_list_s::models, size);
}

int korvane_svcmgr_ai_model_list_add(korvane_svcmgr_ai_model_list_h list,
                                     korvane_svcmgr_ai_model_info_h info) try {
  enter(HERE);
  require(HERE, kInvalidParameterLoud, list, info);
  list->models.push_back(deep_copy(*info));
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_ai_model_list_get(korvane_svcmgr_ai_model_list_h list, int index,
                                     korvane_svcmgr_ai_model_info_h *info) try {
  enter(HERE);
  require(HERE, kInvalidParameterLoud, list, info);
  *info = deep_copy(*svcmgr::entry_at(HERE, list->models, index)).release();
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}
