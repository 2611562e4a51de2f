/** Functions shared by the fuzzers. */
#ifndef KORVANE_TESTS_FUZZ_SUPPORT_H_
#define KORVANE_TESTS_FUZZ_SUPPORT_H_

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "temporary_folder.h"

namespace fuzz {

/** Aborts when a condition does not hold. */
inline void require(bool held) {
  if (!held) std::abort();
}

/** A folder of this process, in memory if possible. */
inline std::string scratch_folder() {
  static const TemporaryFolder folder(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp");
  return folder.path();
}

/** Writes the input to a file. */
inline void write_file(const std::string &path, const std::uint8_t *data, std::size_t size) {
  const std::string contents(data, data + size);
  require(static_cast<bool>(std::ofstream(path, std::ios::binary) << contents));
}

}  // namespace fuzz

#endif  // KORVANE_TESTS_FUZZ_SUPPORT_H_
