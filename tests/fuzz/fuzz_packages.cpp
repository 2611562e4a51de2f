// Arbitrary JSON as a package file of the workstation platform.
#include <cstdlib>
#include <filesystem>

#include "fuzz_support.h"
#include "package.h"

namespace {

bool visit_package(package_info_h package, void *) {
  for (const auto get : {package_info_get_package, package_info_get_version}) {
    char *text = nullptr;
    fuzz::require(get(package, &text) == 0 && text != nullptr);
    std::free(text);
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const std::string device = [] {
    const std::string folder = fuzz::scratch_folder();
    std::filesystem::create_directory(folder + "/packages");
    setenv("KORVANE_DEVICE", folder.c_str(), 1);
    setenv("KORVANE_LOG", "none", 1);
    return folder;
  }();
  fuzz::write_file(device + "/packages/" SVCMGR_APP_ID ".json", data, size);
  fuzz::require(package_manager_foreach_package_info(visit_package, nullptr) == 0);
  app_info_h app = nullptr;
  if (app_info_create(SVCMGR_APP_ID, &app) == 0) {
    const auto visit = [](const char *key, const char *value, void *) {
      fuzz::require(key != nullptr && value != nullptr);
      return true;
    };
    app_info_foreach_metadata(app, visit, nullptr);
    app_info_destroy(app);
  }
  return 0;
}
