#include "device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>

#include "dlog.h"

namespace korvane::host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kLogError = 6;
constexpr int kMaxDepth = 32;
constexpr std::uintmax_t kMaxFileSize = 1 << 20;

[[noreturn]] void fail(int error, const std::string &what) {
  throw std::system_error(error, std::generic_category(), what);
}

Json parse(const fs::path &file) {
  // Opening anything but a regular file, a pipe for one, might block.
  std::error_code ignored;
  if (!fs::is_regular_file(file, ignored) || fs::file_size(file, ignored) > kMaxFileSize) {
    fail(EIO, file.string());
  }
  std::ifstream stream(file, std::ios::binary);
  if (!stream) fail(EIO, file.string());
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  // The parser recurses when it releases a document: depth is limited while reading.
  const auto limit_depth = [](int depth, Json::parse_event_t, Json &) {
    if (depth > kMaxDepth) fail(EIO, "nested too deeply");
    return true;
  };
  Json document = Json::parse(text, limit_depth, false);
  if (!document.is_object()) fail(EIO, file.string());
  return document;
}

std::string text_field(const Json &object, const char *key) {
  const auto field = object.find(key);
  if (field == object.end() || !field->is_string()) fail(EIO, key);
  return field->get<std::string>();
}

Package read_package(const fs::path &file) {
  const Json document = parse(file);
  Package package;
  package.id = text_field(document, "id");
  package.version = text_field(document, "version");
  if (package.id != file.stem().string()) fail(EIO, file.string());
  const auto metadata = document.find("metadata");
  if (metadata == document.end()) return package;
  if (!metadata->is_object()) fail(EIO, "metadata");
  package.has_application = true;
  for (const auto &entry : metadata->items()) {
    if (!entry.value().is_string()) fail(EIO, entry.key());
    package.metadata.emplace_back(entry.key(), entry.value().get<std::string>());
  }
  return package;
}

/** Makes a folder for this user alone; refuses one that others can reach. */
void make_private(const fs::path &folder) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(errno, folder.string());
  struct stat status = {};
  if (lstat(folder.c_str(), &status) != 0) fail(errno, folder.string());
  const bool is_private = S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
                          (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!is_private) fail(EACCES, folder.string() + " is not private to this user");
}

}  // namespace

bool is_plain_name(const std::string &name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

Device Device::current() {
  const char *directory = std::getenv("KORVANE_DEVICE");
  if (directory == nullptr || *directory == '\0') fail(EIO, "KORVANE_DEVICE is not set");
  return Device(directory);
}

std::optional<Package> Device::load_package(const std::string &id) const {
  if (!is_plain_name(id)) fail(EINVAL, "package ID");
  const fs::path file = packages_directory() / (id + ".json");
  std::error_code ignored;
  if (!fs::exists(file, ignored)) return std::nullopt;
  return read_package(file);
}

std::vector<Package> Device::load_packages() const {
  std::vector<fs::path> files;
  for (const auto &entry : fs::directory_iterator(packages_directory())) {
    if (entry.path().extension() == ".json") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<Package> packages;
  for (const fs::path &file : files) {
    try {
      packages.push_back(read_package(file));
    } catch (const std::system_error &error) {
      dlog_print(kLogError, "KORVANE_HOST", "%s is left out: %s", file.c_str(), error.what());
    }
  }
  return packages;
}

fs::path Device::run_directory(const fs::path &below) const {
  fs::path folder = directory_ / "run";
  make_private(folder);
  for (const fs::path &component : below) {
    folder /= component;
    make_private(folder);
  }
  return folder;
}

}  // namespace korvane::host
