/** Package files, which describe installed packages. */
#ifndef KORVANE_HOST_PACKAGE_FILE_H_
#define KORVANE_HOST_PACKAGE_FILE_H_

#include <map>
#include <optional>
#include <string>

namespace korvane::host {

/** A package as described by its file packages/<id>.json. */
struct Package {
  std::string id;
  std::string version;
  std::optional<std::map<std::string, std::string>>
      metadata;  ///< of its application; empty without one
};

/**
 * Reads a package file. Throws std::system_error: the system's error when the file cannot be read,
 * EIO when it is not a regular file, is too large or does not describe a package.
 */
Package read_package_file(const std::string &file);

}  // namespace korvane::host

#endif  // KORVANE_HOST_PACKAGE_FILE_H_
