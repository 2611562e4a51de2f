#ifndef KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_
#define KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_

#include <filesystem>
#include <string>

#include "command_line/words.h"

namespace korvane::svcmgrctl {

using command_line::Words;

/** What can be seen of a device from outside, without its service manager. */
class DeviceDirectory {
 public:
  explicit DeviceDirectory(std::filesystem::path directory) : directory_(std::move(directory)) {}
  /** The one that the tool calls on. */
  static DeviceDirectory current();

  const std::filesystem::path &path() const { return directory_; }
  /** The IDs of the installed packages that are no agents; sorted. */
  Words applications() const;
  /** The IDs of the installed agents; sorted. */
  Words agents() const;

  /** Throws the Failure of a directory that is there no longer. */
  void check_existence() const;
  /** Throws the Failure of a directory that is no device, or has no such application. */
  void check_application(const std::string &id) const;
  /** Throws the Failure of an agent that is not installed. */
  void check_agent(const std::string &id) const;

 private:
  Words packages(bool agents) const;

  std::filesystem::path directory_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_
