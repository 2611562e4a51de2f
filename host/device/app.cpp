// The calling application, named by $KORVANE_APP_ID.
#include "app.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "device/device.h"
#include "guard.h"

using korvane::host::Device;
using korvane::host::guarded;
using korvane::host::heap_copy;

namespace {

std::string calling_app() {
  const char *id = std::getenv("KORVANE_APP_ID");
  if (id == nullptr) throw std::runtime_error("KORVANE_APP_ID is not set");
  if (!korvane::host::is_plain_name(id)) {
    throw std::runtime_error("KORVANE_APP_ID names no application: \"" + std::string(id) + "\"");
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
    *version = heap_copy(Device::current().load_package(calling_app()).version);
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
