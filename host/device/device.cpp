#include "device/device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "device/folder.h"
#include "dlog.h"
#include "guard.h"

namespace korvane::host {

namespace {

namespace fs = std::filesystem;

constexpr int kLogError = 6;

/** Creates a folder that only this user can access; refuses one that other users can access. */
void make_private(const fs::path &folder) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(errno, folder.string());
  struct stat status = {};
  if (lstat(folder.c_str(), &status) != 0) fail(errno, folder.string());
  const bool is_private = S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
                          (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!is_private) fail(EACCES, folder.string() + " is not private to this user");
}

}  // namespace

bool is_plain_name(const std::string &name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

Device Device::current() {
  const char *directory = std::getenv("KORVANE_DEVICE");
  if (directory == nullptr || *directory == '\0') throw NoDevice("KORVANE_DEVICE is not set");
  return Device(directory);
}

std::string Device::package_file(const std::string &id) const {
  if (!is_plain_name(id)) fail(EINVAL, "package ID");
  return directory_ + "/packages/" + id + ".json";
}

bool Device::has_package(const std::string &id) const {
  const std::string file = package_file(id);
  struct stat status = {};
  if (stat(file.c_str(), &status) == 0) return true;
  if (errno != ENOENT && errno != ENOTDIR) fail(errno, file);
  if (!fs::is_directory(packages_directory())) {
    throw NoDevice("KORVANE_DEVICE names no device directory: " + directory_);
  }
  return false;
}

Package Device::load_package(const std::string &id) const {
  Package package = read_package_file(package_file(id));
  if (package.id != id) fail(EIO, package_file(id) + " states another package");
  return package;
}

std::vector<Package> Device::load_packages() const {
  std::vector<Package> packages;
  for (const fs::path name : names_in(packages_directory())) {
    if (name.extension() != ".json") continue;
    try {
      packages.push_back(load_package(name.stem()));
    } catch (const std::system_error &error) {
      dlog_print(kLogError, "KORVANE_HOST", "a package is left out: %s", error.what());
    }
  }
  return packages;
}

fs::path Device::run_directory(const fs::path &below) const {
  fs::path folder = directory() / "run";
  make_private(folder);
  for (const fs::path &component : below) {
    folder /= component;
    make_private(folder);
  }
  return folder;
}

}  // namespace korvane::host
