/** Lists the contents of a folder. */
#ifndef KORVANE_HOST_FOLDER_H_
#define KORVANE_HOST_FOLDER_H_

#include <filesystem>
#include <string>
#include <vector>

namespace korvane::host {

/**
 * The names in a folder, sorted. Throws std::system_error. Throws std::bad_alloc when out of
 * memory, where the standard library's directory iterators would end the process.
 */
std::vector<std::string> names_in(const std::filesystem::path &folder);

}  // namespace korvane::host

#endif  // KORVANE_HOST_FOLDER_H_
