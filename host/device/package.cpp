// Installed packages and their applications, from the device's package files.
#include "package.h"

#include <atomic>
#include <map>
#include <optional>
#include <string>

#include "device/device.h"
#include "dlog.h"
#include "guard.h"

using korvane::host::Device;
using korvane::host::guarded;
using korvane::host::heap_copy;
using korvane::host::NoDevice;
using korvane::host::Package;

struct package_info_s {
  Device device;
  std::string id;
  std::optional<Package> package;  ///< set when all packages are listed; otherwise read on demand
};
struct app_info_s {
  std::map<std::string, std::string> metadata;
};

namespace {

constexpr int kNotInstalled = static_cast<int>(0xFEEB0071U);

int get_text(package_info_h package, std::string Package::*field, char **text) {
  return guarded([=] {
    if (package == nullptr || text == nullptr) return -EINVAL;
    *text = heap_copy(package->package ? (*package->package).*field
                                       : package->device.load_package(package->id).*field);
    return 0;
  });
}

/** Logged once in a process, since every library call looks up a package. */
void report(const NoDevice &error) {
  static std::atomic<bool> is_reported{false};
  if (!is_reported.exchange(true)) dlog_print(6, "KORVANE_HOST", "%s", error.what());
}

}  // namespace

int package_info_create(const char *package_id, package_info_h *package) {
  return guarded([=] {
    if (package_id == nullptr || package == nullptr) return -EINVAL;
    try {
      const Device device = Device::current();
      if (!device.has_package(package_id)) return kNotInstalled;
      *package = new package_info_s{device, package_id, std::nullopt};
      return 0;
    } catch (const NoDevice &error) {
      report(error);
      return kNotInstalled;
    }
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
    const Device device = Device::current();
    for (auto &package : device.load_packages()) {
      package_info_s info{device, package.id, std::move(package)};
      if (!callback(&info, user_data)) break;
    }
    return 0;
  });
}

int app_info_create(const char *app_id, app_info_h *app) {
  return guarded([=] {
    if (app_id == nullptr || app == nullptr) return -EINVAL;
    Package package = Device::current().load_package(app_id);
    if (!package.metadata) return -EIO;
    *app = new app_info_s{std::move(*package.metadata)};
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
    for (const auto &[key, value] : app->metadata) {
      if (!callback(key.c_str(), value.c_str(), user_data)) break;
    }
    return 0;
  });
}
