#ifndef KORVANE_SVCMGRCTL_HANDLES_H_
#define KORVANE_SVCMGRCTL_HANDLES_H_

#include <korvane_svcmgr.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "errors.h"

namespace korvane::svcmgrctl {

template <auto kDestroy>
struct Destroyer {
  template <typename Handle>
  void operator()(Handle handle) const {
    kDestroy(handle);
  }
};

/** Owns a handle of the library. */
template <typename Handle, auto kDestroy>
using Owner = std::unique_ptr<std::remove_pointer_t<Handle>, Destroyer<kDestroy>>;

using AgentList = Owner<korvane_svcmgr_agent_list_h, korvane_svcmgr_agent_list_destroy>;
using ModelInfo = Owner<korvane_svcmgr_ai_model_info_h, korvane_svcmgr_ai_model_info_destroy>;
using ModelList = Owner<korvane_svcmgr_ai_model_list_h, korvane_svcmgr_ai_model_list_destroy>;
using ProgressReport = Owner<korvane_svcmgr_ai_progress_h, korvane_svcmgr_ai_progress_destroy>;
using HeapText = Owner<char *, std::free>;

/** A new handle; create is the library's function for it. */
template <typename Owned>
Owned make(int (*create)(typename Owned::pointer *)) {
  typename Owned::pointer handle = nullptr;
  check(create(&handle));
  return Owned(handle);
}

/** A number that a getter of the library stores. */
template <typename Handle>
int get_number(int (*getter)(Handle, int *), Handle handle) {
  int number = 0;
  check(getter(handle, &number));
  return number;
}

/** A text of a model; none when it was never set. */
inline std::optional<std::string> get_text(int (*getter)(korvane_svcmgr_ai_model_info_h, char **),
                                           korvane_svcmgr_ai_model_info_h model) {
  char *text = nullptr;
  const int error = getter(model, &text);
  if (error == SVCMGR_ERROR_INVALID_OPERATION) return std::nullopt;
  check(error);
  const HeapText owner(text);
  return text;
}

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_HANDLES_H_
