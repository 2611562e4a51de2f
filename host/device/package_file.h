/** The files that installed packages are stated in. */
#ifndef KORVANE_HOST_PACKAGE_FILE_H_
#define KORVANE_HOST_PACKAGE_FILE_H_

#include <map>
#include <optional>
#include <string>

namespace korvane::host {

/** A package as its file packages/<id>.json states it. */
struct Package {
  std::string id;
  std::string version;
  std::optional<std::map<std::string, std::string>>
      metadata;  ///< of its application, if it has one
};

/**
 * Reads a package file. Throws std::system_error: the system's error when the file cannot be read,
 * EIO when it is not a regular file, too large, or states no package.
 */
Package read_package_file(const std::string &file);

}  // namespace korvane::host

#endif  // KORVANE_HOST_PACKAGE_FILE_H_
