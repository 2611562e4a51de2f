/** The device directory: installed packages, applications, sockets. */
#ifndef KORVANE_HOST_DEVICE_H_
#define KORVANE_HOST_DEVICE_H_

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "device/package_file.h"

namespace korvane::host {

/** Whether a name can stand as one component of a path. */
bool is_plain_name(const std::string &name);

/** $KORVANE_DEVICE is not set, or names no device directory. */
struct NoDevice : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/**
 * A device directory.
 *
 * Failures are std::system_error: EIO for a file that cannot be understood,
 * EACCES for sockets that are not private to this user.
 */
class Device {
 public:
  explicit Device(std::string directory) : directory_(std::move(directory)) {}

  /** The device that $KORVANE_DEVICE names. Throws NoDevice when it is not set. */
  static Device current();

  std::filesystem::path directory() const { return directory_; }
  std::filesystem::path packages_directory() const { return directory() / "packages"; }
  std::filesystem::path resource_directory(const std::string &app_id) const {
    return directory() / "apps" / app_id / "res";
  }

  /**
   * Whether a package is installed: whether its file is there, whatever it states. Throws NoDevice
   * when there is no such device.
   */
  bool has_package(const std::string &id) const;
  /** The package as its file states it now. */
  Package load_package(const std::string &id) const;
  /** All packages that can be understood, by the order of their file names. */
  std::vector<Package> load_packages() const;

  /** A folder below run/, made when it is missing, and private to this user. */
  std::filesystem::path run_directory(const std::filesystem::path &below = {}) const;

 private:
  std::string package_file(const std::string &id) const;

  std::string directory_;  ///< no path: every call of the library looks its package up
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_DEVICE_H_
