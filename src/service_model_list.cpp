#include <memory>
#include <utility>

#include "handle_family.h"
#include "handle_records.h"
#include "korvane_svcmgr.h"

using svcmgr::enter;
using svcmgr::EntryLog;
using svcmgr::failure_code;
using svcmgr::kInvalidParameterLoud;
using svcmgr::require;
using svcmgr::Site;

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

/** Appends what make_entry makes of info. */
template <typename MakeEntry>
int add_model(const Site &site, korvane_svcmgr_ai_model_list_h list,
              korvane_svcmgr_ai_model_info_h info, MakeEntry make_entry) try {
  enter(site);
  require(site, kInvalidParameterLoud, list, info);
  list->models.push_back(make_entry(*info));
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

}  // namespace

int svcmgr::move_into_model_list(korvane_svcmgr_ai_model_list_h list,
                                 korvane_svcmgr_ai_model_info_h info) {
  const Site site = {HERE.file, "korvane_svcmgr_ai_model_list_add", HERE.line};
  return add_model(site, list, info, [](korvane_svcmgr_ai_model_info_s &model) {
    return std::make_unique<korvane_svcmgr_ai_model_info_s>(std::move(model));
  });
}

int korvane_svcmgr_ai_model_list_create(korvane_svcmgr_ai_model_list_h *list) {
  return svcmgr::create_handle(HERE, list, "Failed to create korvane_svcmgr_ai_model_list_s.");
}

int korvane_svcmgr_ai_model_list_destroy(korvane_svcmgr_ai_model_list_h list) try {
  enter(HERE, EntryLog::kInfo);
  require(HERE, kInvalidParameterLoud, list);
  for (auto &model : list->models) {
    // Should the entry's own destroy refuse, because the service manager vanished meanwhile, the
    // list still releases it.
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
                                     korvane_svcmgr_ai_model_info_h info) {
  return add_model(HERE, list, info, deep_copy);
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
