#include "device/folder.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "guard.h"

namespace korvane::host {

namespace {

struct Close {
  void operator()(DIR *stream) const { closedir(stream); }
};

}  // namespace

std::vector<std::string> names_in(const std::filesystem::path &folder) {
  const std::unique_ptr<DIR, Close> stream(opendir(folder.c_str()));
  if (stream == nullptr) fail(errno, folder.string());
  std::vector<std::string> names;
  // cppcheck-suppress readdirCalled ; the stream is local
  while (const dirent *entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace korvane::host
