#include "device/device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "device/folder.h"
#include "dlog.h"

namespace korvane::host {

namespace {

namespace fs = std::filesystem;

constexpr int kLogError = 6;

[[noreturn]] void fail(int error, const std::string &what) {
  throw std::system_error(error, std::generic_category(), what);
}

/** Makes a folder for this user alone; refuses one that others can reach. */
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
  if (directory == nullptr || *directory == '\0') fail(EIO, "KORVANE_DEVICE is not set");
  return Device(directory);
}

std::shared_ptr<const Package> Device::load_package(const std::string &id) const {
  if (!is_plain_name(id)) fail(EINVAL, "package ID");
  return load_package_file(directory_ + "/packages/" + id + ".json", id);
}

std::vector<std::shared_ptr<const Package>> Device::load_packages() const {
  std::vector<std::shared_ptr<const Package>> packages;
  for (const std::string &name : names_in(packages_directory())) {
    const fs::path file = packages_directory() / name;
    if (file.extension() != ".json") continue;
    try {
      if (auto package = load_package_file(file, file.stem())) {
        packages.push_back(std::move(package));
      }
    } catch (const std::system_error &error) {
      dlog_print(kLogError, "KORVANE_HOST", "%s is left out: %s", file.c_str(), error.what());
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
