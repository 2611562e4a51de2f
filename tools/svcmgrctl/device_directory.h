#ifndef KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_
#define KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_

#include <filesystem>
#include <string>

#include "command_line/words.h"

namespace korvane::svcmgrctl {

using command_line::Words;

/** The parts of a device directory that can be read without the service manager. */
class DeviceDirectory {
 public:
  explicit DeviceDirectory(std::filesystem::path directory) : directory_(std::move(directory)) {}
  /** The device that the tool uses. */
  static DeviceDirectory current();

  const std::filesystem::path &path() const { return directory_; }
  /** The IDs of the installed packages that are not agents, sorted. */
  Words applications() const;
  /** The IDs of the installed agents, sorted. */
  Words agents() const;

  /** Throws a Failure when the directory no longer exists. */
  void check_existence() const;
  /** Throws a Failure when the directory is not a device, or the application is not installed. */
  void check_application(const std::string &id) const;
  /** Throws a Failure when the agent is not installed. */
  void check_agent(const std::string &id) const;

 private:
  Words packages(bool agents) const;

  std::filesystem::path directory_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_DEVICE_DIRECTORY_H_
