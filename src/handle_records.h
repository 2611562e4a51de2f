/** The records behind the public handles. A zero-filled record is a valid new one. */
#ifndef KORVANE_SVCMGR_HANDLE_RECORDS_H_
#define KORVANE_SVCMGR_HANDLE_RECORDS_H_

#include <array>
#include <memory>
#include <vector>

#include "heap_text.h"
#include "korvane_svcmgr.h"

struct korvane_svcmgr_agent_list_s {
  std::vector<svcmgr::HeapText> names;
};

/** Texts are null until they are set. */
struct korvane_svcmgr_ai_model_info_s {
  svcmgr::HeapText id;
  svcmgr::HeapText version;
  svcmgr::HeapText title;
  svcmgr::HeapText description;
};

/** Entries are the list's own copies, never null. */
struct korvane_svcmgr_ai_model_list_s {
  std::vector<std::unique_ptr<korvane_svcmgr_ai_model_info_s>> models;
};

struct korvane_svcmgr_ai_progress_s {
  int index;
  int count;
  int percentage;
  int state;
};

namespace svcmgr {

// What an answer's models go through on their way into a list. Each function is as the public ones
// that it names, their log lines and checks included, but takes the texts over.

/**
 * korvane_svcmgr_ai_model_info_set_id, _version, _title and _description; the first failure. A null
 * text is an empty one.
 */
int move_into_model_info(korvane_svcmgr_ai_model_info_h info, std::array<HeapText, 4> texts);

/** korvane_svcmgr_ai_model_list_add. */
int move_into_model_list(korvane_svcmgr_ai_model_list_h list, korvane_svcmgr_ai_model_info_h info);

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_HANDLE_RECORDS_H_
