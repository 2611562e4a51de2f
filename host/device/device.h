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

/** Whether a name is valid as one component of a path. */
bool is_plain_name(const std::string &name);

/** $KORVANE_DEVICE is not set, or does not name a device directory. */
struct NoDevice : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/**
 * A device directory.
 *
 * Errors are thrown as std::system_error: EIO for a file with invalid content, EACCES for sockets
 * that are not private to this user.
 */
class Device {
 public:
  explicit Device(std::string directory) : directory_(std::move(directory)) {}

  /** The device that $KORVANE_DEVICE names. Throws NoDevice when the variable is not set. */
  static Device current();

  std::filesystem::path directory() const { return directory_; }
  std::filesystem::path packages_directory() const { return directory() / "packages"; }
  std::filesystem::path resource_directory(const std::string &app_id) const {
    return directory() / "apps" / app_id / "res";
  }

  /**
   * Whether a package is installed, that is, whether its file exists; the content is not checked.
   * Throws NoDevice when the device does not exist.
   */
  bool has_package(const std::string &id) const;
  /** Reads the package from its file. */
  Package load_package(const std::string &id) const;
  /** All packages with a valid file, in the order of their file names. */
  std::vector<Package> load_packages() const;

  /** Returns a folder below run/. Creates it, private to this user, when it is missing. */
  std::filesystem::path run_directory(const std::filesystem::path &below = {}) const;

 private:
  std::string package_file(const std::string &id) const;

  std::string directory_;  ///< a string, since every library call looks up a package here
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_DEVICE_H_
