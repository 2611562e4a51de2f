/** Shared by the handle functions: creating and releasing records, and entries of lists. */
#ifndef KORVANE_SVCMGR_HANDLE_FAMILY_H_
#define KORVANE_SVCMGR_HANDLE_FAMILY_H_

#include <new>

#include "api_frame.h"

namespace svcmgr {

/** Creates a record; logs failure and throws SVCMGR_ERROR_OUT_OF_MEMORY when out of memory. */
template <typename Record>
Record *make_record(const Site &site, const char *failure) {
  auto *record = new (std::nothrow) Record();
  if (record == nullptr) {
    LOG_ERROR_AT(site, "%s", failure);
    throw ApiFailure{SVCMGR_ERROR_OUT_OF_MEMORY};
  }
  return record;
}

/** The entry at an index; logs and throws SVCMGR_ERROR_OUT_OF_INDEX when there is none. */
template <typename Entries>
const typename Entries::value_type &entry_at(const Site &site, const Entries &entries, int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= entries.size()) {
    LOG_ERROR_AT(site, "Out of Index!!!");
    throw ApiFailure{SVCMGR_ERROR_OUT_OF_INDEX};
  }
  return entries[static_cast<std::size_t>(index)];
}

// Complete exported functions that differ in the record only.

template <typename Record>
int create_handle(const Site &site, Record **handle, const char *failure) try {
  enter(site, EntryLog::kInfo);
  require(site, kInvalidParameterLoud, handle);
  *handle = make_record<Record>(site, failure);
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

template <typename Record>
int destroy_handle(const Site &site, Record *handle) try {
  enter(site, EntryLog::kInfo);
  require(site, kInvalidParameterLoud, handle);
  delete handle;
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

template <typename Record, typename Entries>
int get_list_size(const Site &site, const Record *list, Entries Record::*entries, int *size) try {
  enter(site);
  require(site, kInvalidParameter, list, size);
  *size = static_cast<int>((list->*entries).size());
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(site);
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_HANDLE_FAMILY_H_
