/** Functions shared by the fuzzers. */
#ifndef KORVANE_TESTS_FUZZ_SUPPORT_H_
#define KORVANE_TESTS_FUZZ_SUPPORT_H_

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz {

/** Aborts when a condition does not hold. */
inline void require(bool held) {
  if (!held) std::abort();
}

/** A folder of this process, in memory if possible; removed on destruction. */
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

/** Writes the input to a file. */
inline void write_file(const std::string &path, const std::uint8_t *data, std::size_t size) {
  const std::string contents(data, data + size);
  require(static_cast<bool>(std::ofstream(path, std::ios::binary) << contents));
}

}  // namespace fuzz

#endif  // KORVANE_TESTS_FUZZ_SUPPORT_H_
