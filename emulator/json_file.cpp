#include "json_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "sockets/unique_fd.h"

namespace korvane::emulator {

namespace {

namespace fs = std::filesystem;

constexpr int kMaxDepth = 32;
constexpr std::uintmax_t kMaxFileSize = 256 << 20;

[[noreturn]] void fail(const fs::path &file) {
  throw std::system_error(errno, std::generic_category(), "cannot write " + file.string());
}

/** Creates a temporary file next to another file; skips names that already exist. */
host::UniqueFd create_beside(const fs::path &file, fs::path &created) {
  for (unsigned number = 0;; ++number) {
    created = file;
    created += "." + std::to_string(getpid()) + "-" + std::to_string(number);
    host::UniqueFd descriptor(
        open(created.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (descriptor) return descriptor;
    if (errno != EEXIST) fail(created);
  }
}

bool write_all(int descriptor, const std::string &text) {
  for (std::size_t written = 0; written < text.size();) {
    const ssize_t size = write(descriptor, text.data() + written, text.size() - written);
    if (size < 0 && errno != EINTR) return false;
    if (size > 0) written += static_cast<std::size_t>(size);
  }
  return true;
}

}  // namespace

std::string to_text(const Json &document, int indent) {
  return document.dump(indent, ' ', true, Json::error_handler_t::replace);
}

Json parse_json(const std::string &text) {
  // Documents are written, compared and destroyed recursively, so the depth is limited here.
  const auto limit_depth = [](int depth, Json::parse_event_t, Json &) {
    if (depth > kMaxDepth) throw std::runtime_error("nested too deeply");
    return true;
  };
  try {
    return Json::parse(text, limit_depth);
  } catch (const Json::exception &error) {
    throw std::runtime_error(error.what());
  }
}

Json read_json(const fs::path &file) {
  // Opening a file that is not a regular one, such as a pipe, might block.
  std::error_code ignored;
  const bool is_readable =
      fs::is_regular_file(file, ignored) && fs::file_size(file, ignored) <= kMaxFileSize;
  std::ifstream stream;
  if (is_readable) stream.open(file, std::ios::binary);
  if (!stream.is_open()) throw std::runtime_error("cannot read " + file.string());
  try {
    return parse_json({std::istreambuf_iterator<char>(stream), {}});
  } catch (const std::exception &error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
}

void write_json(const fs::path &file, const Json &document) {
  const std::string text = document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  fs::path fresh;
  const host::UniqueFd descriptor = create_beside(file, fresh);
  if (write_all(descriptor.get(), text) && rename(fresh.c_str(), file.c_str()) == 0) return;
  const int error = errno;
  unlink(fresh.c_str());
  errno = error;
  fail(file);
}

}  // namespace korvane::emulator
