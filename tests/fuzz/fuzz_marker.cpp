// The marker search on an arbitrary file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "fuzz_support.h"
#include "heap_text.h"
#include "qel-section.h"
#include "scripted_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const std::string folder = fuzz::scratch_folder();
  static const std::string file = folder + "/file";
  platform.forget();
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  fuzz::require(write(descriptor, data, size) == static_cast<ssize_t>(size));
  close(descriptor);
  const std::unique_ptr<qel_section_s, svcmgr::Free> found(qel_section_get_latest(folder.c_str()));
  fuzz::require(found == nullptr || found->api_level != 0);
  unlink(file.c_str());
  return 0;
}
