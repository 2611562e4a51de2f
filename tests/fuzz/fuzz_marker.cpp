// The marker search on an arbitrary file.
#include <memory>
#include <string>

#include "fuzz_support.h"
#include "heap_text.h"
#include "qel-section.h"
#include "scripted_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const std::string folder = fuzz::scratch_folder();
  platform.forget();
  fuzz::write_file(folder + "/file", data, size);
  const std::unique_ptr<qel_section_s, svcmgr::Free> found(qel_section_get_latest(folder.c_str()));
  fuzz::require(found == nullptr || found->api_level != 0);
  return 0;
}
