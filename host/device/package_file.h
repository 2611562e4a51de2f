/** The files that installed packages are stated in. */
#ifndef KORVANE_HOST_PACKAGE_FILE_H_
#define KORVANE_HOST_PACKAGE_FILE_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace korvane::host {

/** A package as its file packages/<id>.json states it. */
struct Package {
  std::string id;
  std::string version;
  bool has_application = false;  ///< the file states metadata, if only an empty object
  std::vector<std::pair<std::string, std::string>> metadata;
};

/**
 * The package of this ID as its file states it now; read again only when the file has changed. Null
 * when there is no such file. Throws std::system_error EIO when it states something else. Any
 * thread.
 */
std::shared_ptr<const Package> load_package_file(const std::string &file, const std::string &id);

}  // namespace korvane::host

#endif  // KORVANE_HOST_PACKAGE_FILE_H_
