/** The records behind the public handles. A zero-filled record is a valid new one. */
#ifndef KORVANE_SVCMGR_HANDLE_RECORDS_H_
#define KORVANE_SVCMGR_HANDLE_RECORDS_H_

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

#endif  // KORVANE_SVCMGR_HANDLE_RECORDS_H_
