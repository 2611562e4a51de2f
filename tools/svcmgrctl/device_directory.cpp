#include "device_directory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "errors.h"

namespace korvane::svcmgrctl {

namespace {

namespace fs = std::filesystem;
using command_line::listed;
using command_line::suggestion;

bool is_agent(const std::string &id) {
  return id != SVCMGR_APP_ID && id.rfind(SVCMGR_VENDOR_PREFIX ".", 0) == 0;
}

void check_installed(const std::string &id, const Words &installed, const char *name,
                     const std::string &message) {
  if (std::find(installed.begin(), installed.end(), id) != installed.end()) return;
  const std::string there = installed.empty() ? "none" : listed(installed);
  throw Failure({-ENOENT, name, message + suggestion(id, installed, "; installed: " + there)});
}

}  // namespace

DeviceDirectory DeviceDirectory::current() {
  const char *directory = std::getenv("KORVANE_DEVICE");
  return DeviceDirectory(directory == nullptr ? "" : directory);
}

Words DeviceDirectory::packages(bool agents) const {
  Words ids;
  std::error_code error;
  for (fs::directory_iterator entry(directory_ / "packages", error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path &file = entry->path();
    const std::string id = file.stem().string();
    if (file.extension() == ".json" && is_agent(id) == agents) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

Words DeviceDirectory::applications() const {
  Words ids = packages(false);
  ids.erase(std::remove(ids.begin(), ids.end(), SVCMGR_APP_ID), ids.end());
  return ids;
}

Words DeviceDirectory::agents() const {
  return packages(true);
}

void DeviceDirectory::check_existence() const {
  std::error_code ignored;
  if (fs::status(directory_, ignored).type() != fs::file_type::not_found) return;
  throw Failure(
      {-ENOENT, "NO_DEVICE", "the device directory " + directory_.string() + " was removed"});
}

void DeviceDirectory::check_application(const std::string &id) const {
  std::error_code ignored;
  if (!fs::is_directory(directory_ / "packages", ignored)) {
    throw Failure({-ENOENT, "NO_DEVICE",
                   directory_.string() + " is no device directory; \"svcmgr-emulator --device " +
                       directory_.string() + " --init\" makes a sample one"});
  }
  if (!fs::exists(directory_ / "packages" / (SVCMGR_APP_ID ".json"), ignored)) {
    throw Failure(SVCMGR_ERROR_NOT_SUPPORTED, "no service manager is installed on " +
                                                  directory_.string() +
                                                  ": its packages lack " SVCMGR_APP_ID ".json");
  }
  check_installed(id, applications(), "NO_APPLICATION",
                  "no application \"" + id + "\" is installed on " + directory_.string());
}

void DeviceDirectory::check_agent(const std::string &id) const {
  check_installed(id, agents(), "NO_AGENT",
                  "no agent \"" + id + "\" is installed on " + directory_.string());
}

}  // namespace korvane::svcmgrctl
