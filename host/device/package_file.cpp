#include "device/package_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "guard.h"
#include "sockets/unique_fd.h"

namespace korvane::host {

namespace {

using Json = nlohmann::json;

constexpr off_t kMaxFileSize = 1 << 20;

std::string read_text(const std::string &file) {
  // Opening a file that is not a regular one, such as a pipe, might block.
  const UniqueFd descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status = {};
  if (!descriptor || fstat(descriptor.get(), &status) != 0) fail(errno, file);
  if (!S_ISREG(status.st_mode)) fail(EIO, file + " is not a regular file");
  if (status.st_size > kMaxFileSize) fail(EIO, file + " is too large");
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t count = read(descriptor.get(), &text[filled], text.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno, file);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  text.resize(filled);
  return text;
}

/**
 * Takes the fields in the callback of the parser and keeps no part of the document: destroying a
 * deeply nested one would allocate memory.
 */
Package parse(const std::string &text, const std::string &file) {
  using Event = Json::parse_event_t;
  Package package;
  bool has_id = false;
  bool has_version = false;
  std::string field;
  std::string key;
  const auto take = [&](int depth, Event event, const Json &value) {
    if (event == Event::key) {
      if (depth <= 2) value.get_to(depth == 1 ? field : key);
    } else if (depth == 1 && field == "id") {
      value.get_to(package.id);
      has_id = true;
    } else if (depth == 1 && field == "version") {
      value.get_to(package.version);
      has_version = true;
    } else if (depth == 1 && field == "metadata") {
      if (event != Event::object_start) fail(EIO, file + ": metadata is not an object");
      package.metadata.emplace();
      return true;  // the entries follow
    } else if (depth == 2 && field == "metadata") {
      value.get_to((*package.metadata)[key]);
    }
    return depth == 0;
  };
  try {
    [[maybe_unused]] const Json nothing = Json::parse(text, take);
  } catch (const Json::exception &error) {
    fail(EIO, file + ": " + error.what());
  }
  if (!has_id || !has_version) fail(EIO, file + ": id or version is missing");
  return package;
}

}  // namespace

Package read_package_file(const std::string &file) {
  return parse(read_text(file), file);
}

}  // namespace korvane::host
