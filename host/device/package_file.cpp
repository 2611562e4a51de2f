#include "device/package_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "sockets/unique_fd.h"

namespace korvane::host {

namespace {

using Json = nlohmann::json;

constexpr off_t kMaxFileSize = 1 << 20;

[[noreturn]] void fail(const std::string &what) {
  throw std::system_error(EIO, std::generic_category(), what);
}

/**
 * Takes the values of a package file as they are read. A document is not made of them: to release
 * one needs memory, which may have run out, and stack, which a deep one has too little of.
 */
class PackageReader : public nlohmann::json_sax<Json> {
 public:
  /** The package; empty when the text is none. */
  static std::optional<Package> read(const std::string &text) {
    PackageReader reader;
    if (!Json::sax_parse(text, &reader) || !reader.id_ || !reader.version_) return std::nullopt;
    reader.package_.id = std::move(*reader.id_);
    reader.package_.version = std::move(*reader.version_);
    return std::move(reader.package_);
  }

  bool null() override { return may_be_anything(); }
  bool boolean(bool /*value*/) override { return may_be_anything(); }
  bool number_integer(std::int64_t /*value*/) override { return may_be_anything(); }
  bool number_unsigned(std::uint64_t /*value*/) override { return may_be_anything(); }
  bool number_float(double /*value*/, const std::string & /*text*/) override {
    return may_be_anything();
  }
  bool binary(Json::binary_t & /*value*/) override { return may_be_anything(); }
  bool string(std::string &text) override {
    if (is_entry()) {
      set_entry(std::move(text));
    } else if (is_field("id")) {
      id_ = std::move(text);
    } else if (is_field("version")) {
      version_ = std::move(text);
    } else {
      return may_be_anything();
    }
    return true;
  }
  bool start_object(std::size_t /*size*/) override {
    if (is_field("metadata")) {
      package_.has_application = true;
      package_.metadata.clear();
    } else if (depth_ > 0 && !may_be_anything()) {
      return false;
    }
    ++depth_;
    return true;
  }
  bool start_array(std::size_t /*size*/) override {
    const bool accepted = may_be_anything();
    ++depth_;
    return accepted;
  }
  bool key(std::string &name) override {
    if (depth_ == 1) field_ = name;
    if (is_entry()) entry_ = name;
    return true;
  }
  bool end_object() override { return end(); }
  bool end_array() override { return end(); }
  bool parse_error(std::size_t /*position*/, const std::string & /*token*/,
                   const Json::exception & /*error*/) override {
    return false;
  }

 private:
  bool is_field(const char *name) const { return depth_ == 1 && field_ == name; }
  bool is_entry() const { return depth_ == 2 && field_ == "metadata"; }
  /** Whether a value here is none that must be a text, or an object. */
  bool may_be_anything() const {
    return depth_ > 0 && !is_entry() && !is_field("id") && !is_field("version") &&
           !is_field("metadata");
  }
  bool end() {
    --depth_;
    return true;
  }
  void set_entry(std::string text) {
    const auto same_key = [this](const auto &entry) { return entry.first == entry_; };
    const auto entry = std::find_if(package_.metadata.begin(), package_.metadata.end(), same_key);
    if (entry != package_.metadata.end()) {
      entry->second = std::move(text);
    } else {
      package_.metadata.emplace_back(entry_, std::move(text));
    }
  }

  Package package_;
  std::optional<std::string> id_;
  std::optional<std::string> version_;
  int depth_ = 0;
  std::string field_;
  std::string entry_;
};

std::string read_text(int file, std::size_t size) {
  std::string text(size, '\0');
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = ::read(file, &text[filled], size - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("read");
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  text.resize(filled);
  return text;
}

/** Tells one state of a file from another. */
struct Stamp {
  explicit Stamp(const struct stat &status)
      : device(status.st_dev),
        inode(status.st_ino),
        size(status.st_size),
        changed(std::chrono::seconds(status.st_ctim.tv_sec) +
                std::chrono::nanoseconds(status.st_ctim.tv_nsec)) {}

  bool operator==(const Stamp &other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           changed == other.changed;
  }

  /**
   * Whether a change from now on is sure to give the file another stamp: the clock of a file system
   * ticks some hundred times a second, or every other second where it knows no fractions.
   */
  bool is_settled() const {
    timespec clock = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &clock);
    const auto now = std::chrono::seconds(clock.tv_sec) + std::chrono::nanoseconds(clock.tv_nsec);
    const bool has_fraction = changed % std::chrono::seconds(1) != std::chrono::nanoseconds(0);
    return now - changed >
           (has_fraction ? std::chrono::milliseconds(100) : std::chrono::milliseconds(2500));
  }

  dev_t device;
  ino_t inode;
  off_t size;
  std::chrono::nanoseconds changed;
};

/** The packages that were read, each for as long as its file is as it was. Any thread. */
class PackageCache {
 public:
  static PackageCache &instance() {
    // Never destroyed: the application may still ask at process exit.
    static PackageCache &cache = *new PackageCache;
    return cache;
  }

  /** Null when there is no such file; EIO when it is no package's. */
  std::shared_ptr<const Package> look_up(const std::string &file, const std::string &id) {
    const std::lock_guard<std::mutex> guard(mutex_);
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0) {
      entries_.erase(file);
      return nullptr;
    }
    const auto known = entries_.find(file);
    if (known != entries_.end() && known->second.stamp == Stamp(status)) {
      return known->second.package;
    }
    if (known != entries_.end()) entries_.erase(known);
    return read(file, id);
  }

 private:
  struct Entry {
    Stamp stamp;
    std::shared_ptr<const Package> package;
  };

  std::shared_ptr<const Package> read(const std::string &file, const std::string &id) {
    // Anything but a regular file, a pipe for one, might block.
    const UniqueFd descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!descriptor && errno == ENOENT) return nullptr;
    if (!descriptor || fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > kMaxFileSize) {
      fail(file);
    }
    const Stamp stamp(status);
    const bool is_settled = stamp.is_settled();
    auto package =
        PackageReader::read(read_text(descriptor.get(), static_cast<std::size_t>(status.st_size)));
    if (!package || package->id != id) fail(file);
    auto shared = std::make_shared<const Package>(std::move(*package));
    if (is_settled) entries_.insert_or_assign(file, Entry{stamp, shared});
    return shared;
  }

  std::mutex mutex_;
  std::map<std::string, Entry> entries_;
};

}  // namespace

std::shared_ptr<const Package> load_package_file(const std::string &file, const std::string &id) {
  return PackageCache::instance().look_up(file, id);
}

}  // namespace korvane::host
