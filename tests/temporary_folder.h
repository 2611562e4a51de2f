/** A folder of a test. */
#ifndef KORVANE_TESTS_TEMPORARY_FOLDER_H_
#define KORVANE_TESTS_TEMPORARY_FOLDER_H_

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/** A new folder, which is removed on destruction. */
class TemporaryFolder {
 public:
  explicit TemporaryFolder(
      const std::filesystem::path &parent = std::filesystem::temp_directory_path()) {
    std::string name = parent / "korvane-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path &path() const { return path_; }

 private:
  std::filesystem::path path_;
};

#endif  // KORVANE_TESTS_TEMPORARY_FOLDER_H_
