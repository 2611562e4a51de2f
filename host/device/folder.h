/** What a folder holds. */
#ifndef KORVANE_HOST_FOLDER_H_
#define KORVANE_HOST_FOLDER_H_

#include <filesystem>
#include <string>
#include <vector>

namespace korvane::host {

/**
 * The names in a folder, sorted. Throws std::system_error, or std::bad_alloc where the iterators of
 * the standard library end the process.
 */
std::vector<std::string> names_in(const std::filesystem::path &folder);

}  // namespace korvane::host

#endif  // KORVANE_HOST_FOLDER_H_
