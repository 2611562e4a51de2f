// The calling application: the one that $KORVANE_APP_ID names.
#include "app.h"

#include <cstdlib>

#include "device/device.h"
#include "guard.h"

using korvane::host::Device;
using korvane::host::guarded;
using korvane::host::heap_copy;

namespace {

std::string calling_app() {
  const char *id = std::getenv("KORVANE_APP_ID");
  if (id == nullptr || !korvane::host::is_plain_name(id)) {
    throw std::system_error(EIO, std::generic_category(), "KORVANE_APP_ID names no application");
  }
  return id;
}

}  // namespace

int app_get_id(char **id) {
  return guarded([id] {
    if (id == nullptr) return -EINVAL;
    *id = heap_copy(calling_app());
    return 0;
  });
}

int app_get_version(char **version) {
  return guarded([version] {
    if (version == nullptr) return -EINVAL;
    const auto package = Device::current().load_package(calling_app());
    if (!package) return -EIO;
    *version = heap_copy(package->version);
    return 0;
  });
}

char *app_get_resource_path(void) {
  char *path = nullptr;
  guarded([&path] {
    const auto directory = Device::current().resource_directory(calling_app());
    if (std::filesystem::is_directory(directory)) path = heap_copy(directory.string() + "/");
    return 0;
  });
  return path;
}
