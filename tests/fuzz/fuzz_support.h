/** What the fuzzers share. */
#ifndef KORVANE_TESTS_FUZZ_SUPPORT_H_
#define KORVANE_TESTS_FUZZ_SUPPORT_H_

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace fuzz {

/** Ends the test when a promise is broken. */
inline void require(bool held) {
  if (!held) std::abort();
}

/** A folder of this process, in memory where the machine has that; removed at the end. */
inline const std::string &scratch_folder() {
  struct Folder {
    Folder() : path(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") {
      path += "/korvane-fuzz-XXXXXX";
      require(mkdtemp(path.data()) != nullptr);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
  };
  static const Folder folder;
  return folder.path;
}

/** Values taken off the front of the input; zeros and empty texts once it is used up. */
class Input {
 public:
  Input(const std::uint8_t *data, std::size_t size)
      : left_(reinterpret_cast<const char *>(data), size) {}

  bool empty() const { return left_.empty(); }
  unsigned byte() {
    const std::string first = take(1);
    return first.empty() ? 0 : static_cast<std::uint8_t>(first[0]);
  }
  int number() {
    unsigned value = 0;
    for (unsigned shift = 0; shift < 32; shift += 8) value |= byte() << shift;
    return static_cast<int>(value);
  }
  /** A length of two bytes and so many letters, or as many as there are. */
  std::string text() {
    const unsigned low = byte();
    return take(low | byte() << 8);
  }

 private:
  std::string take(std::size_t size) {
    const std::string_view taken = left_.substr(0, size);
    left_.remove_prefix(taken.size());
    return std::string(taken);
  }

  std::string_view left_;
};

}  // namespace fuzz

#endif  // KORVANE_TESTS_FUZZ_SUPPORT_H_
