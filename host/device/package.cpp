// Installed packages and their applications, from the device's package files.
#include "package.h"

#include <memory>

#include "device/device.h"
#include "guard.h"

using korvane::host::Device;
using korvane::host::guarded;
using korvane::host::heap_copy;
using korvane::host::Package;

struct package_info_s {
  std::shared_ptr<const Package> package;
};
struct app_info_s {
  std::shared_ptr<const Package> package;
};

namespace {

constexpr int kNotInstalled = static_cast<int>(0xFEEB0071U);

int get_text(package_info_h package, std::string Package::*field, char **text) {
  return guarded([=] {
    if (package == nullptr || text == nullptr) return -EINVAL;
    *text = heap_copy((*package->package).*field);
    return 0;
  });
}

}  // namespace

int package_info_create(const char *package_id, package_info_h *package) {
  return guarded([=] {
    if (package_id == nullptr || package == nullptr) return -EINVAL;
    auto found = Device::current().load_package(package_id);
    if (!found) return kNotInstalled;
    *package = new package_info_s{std::move(found)};
    return 0;
  });
}

int package_info_destroy(package_info_h package) {
  if (package == nullptr) return -EINVAL;
  delete package;
  return 0;
}

int package_info_get_package(package_info_h package, char **id) {
  return get_text(package, &Package::id, id);
}

int package_info_get_version(package_info_h package, char **version) {
  return get_text(package, &Package::version, version);
}

int package_manager_foreach_package_info(package_manager_package_info_cb callback,
                                         void *user_data) {
  return guarded([=] {
    if (callback == nullptr) return -EINVAL;
    for (auto &package : Device::current().load_packages()) {
      package_info_s info{std::move(package)};
      if (!callback(&info, user_data)) break;
    }
    return 0;
  });
}

int app_info_create(const char *app_id, app_info_h *app) {
  return guarded([=] {
    if (app_id == nullptr || app == nullptr) return -EINVAL;
    auto found = Device::current().load_package(app_id);
    if (!found || !found->has_application) return -EIO;
    *app = new app_info_s{std::move(found)};
    return 0;
  });
}

int app_info_destroy(app_info_h app) {
  if (app == nullptr) return -EINVAL;
  delete app;
  return 0;
}

int app_info_foreach_metadata(app_info_h app, app_info_metadata_cb callback, void *user_data) {
  return guarded([=] {
    if (app == nullptr || callback == nullptr) return -EINVAL;
    for (const auto &[key, value] : app->package->metadata) {
      if (!callback(key.c_str(), value.c_str(), user_data)) break;
    }
    return 0;
  });
}
