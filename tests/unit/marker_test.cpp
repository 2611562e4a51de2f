#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>

#include "library_test.h"
#include "qel-section.h"

namespace {

namespace fs = std::filesystem;

constexpr int kNone = SVCMGR_ERROR_NOT_SUPPORTED;
const std::string kElf = "\177ELF";

void put(std::string &file, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) file.at(at + i) = static_cast<char>(value >> (8 * i));
}

std::string marker(unsigned level, unsigned major = 3, unsigned minor = 0, unsigned patch = 1) {
  std::string text("QEL\0\0\0\1\0........", 16);
  std::size_t at = 6;
  for (const unsigned number : {level, major, minor, patch}) put(text, at += 2, number, 2);
  return text;
}

/** Where the fields that the reader uses lie in the headers of a class, and their sizes. */
struct Layout {
  std::size_t header, table, count, entry, size, offset, field;
};
constexpr Layout kElf32 = {52, 32, 48, 40, 20, 16, 4};
constexpr Layout kElf64 = {64, 40, 60, 64, 32, 24, 8};

/** An ELF file: header, contents of the sections, section table. All else is 0xEE. */
std::string elf(char elf_class, const std::vector<std::string> &sections) {
  const Layout &layout = elf_class == 1 ? kElf32 : kElf64;
  std::string file = kElf + elf_class;
  file.resize(layout.header, '\xEE');
  std::string table;
  for (const std::string &section : sections) {
    std::string entry(layout.entry, '\xEE');
    put(entry, layout.offset, file.size(), layout.field);
    put(entry, layout.size, section.size(), layout.field);
    table += entry;
    file += section;
  }
  put(file, layout.table, file.size(), layout.field);
  put(file, layout.count, sections.size(), 2);
  return file + table;
}

/** The file with one number changed. */
std::string patched(std::string file, std::size_t at, std::uint64_t value, std::size_t size) {
  put(file, at, value, size);
  return file;
}

void write(const fs::path &path, const std::string &text) {
  std::ofstream(path) << text;
}

std::ptrdiff_t open_descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

class MarkerTest : public LibraryTest {
 protected:
  /** Where the files of one search go. */
  fs::path fresh() {
    const fs::path root = directory() / std::to_string(++searches);
    fs::create_directories(root / "res");
    platform.resource_path = (root / "res/").string();
    return root;
  }
  /** The level found; the code when there is none. */
  int level() {
    int found = -77;
    platform.take_log();
    const int code = korvane_svcmgr_get_client_api_level(&found);
    EXPECT_EQ(code == 0, found != -77);
    return code == 0 ? found : code;
  }
  /** What the walk logs of one file of those that carry no marker. */
  std::string log_of(const fs::path &path) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    platform.take_log();
    EXPECT_EQ(0, qel_section_read_file(path.c_str(), &status, FTW_F, nullptr)) << "it goes on";
    return platform.take_log();
  }
  int searches = 0;
};

TEST_F(MarkerTest, Files) {
  const std::string other(16, 'x');
  const std::string one32 = elf(1, {marker(12)}), one64 = elf(2, {marker(13)});
  const std::string second32 = elf(1, {other, marker(9)}), second64 = elf(2, {other, marker(9)});
  const std::size_t table32 = kElf32.header + 16, table64 = kElf64.header + 16;
  std::vector<std::string> many(1000, other);
  many.push_back(marker(9));
  const std::tuple<std::string, Texts, int> rows[] = {
      {"32-bit", {one32}, 12},
      {"64-bit", {one64}, 13},
      {"any other class is 64-bit", {elf(9, {marker(65535)})}, 65535},
      {"highest of several", {one32, one64, elf(1, {marker(11)})}, 13},
      {"only the first marker of a file", {elf(2, {marker(5), marker(6)})}, 5},
      {"of a thousand sections the last", {elf(1, many)}, 9},
      {"level 0 is none", {elf(2, {marker(0, 9, 9, 9)})}, kNone},
      {"of 17 bytes", {elf(2, {marker(5) + "x"})}, kNone},
      {"half a marker at the end",
       {patched(elf(2, {other}), table64 + kElf64.offset, table64 + kElf64.entry, 8) +
        marker(9).substr(0, 12)},
       kNone},
      {"other magic", {elf(2, {patched(marker(5), 5, 1, 1)})}, kNone},
      {"no ELF file", {patched(one32, 3, 'f', 1), std::string(4000, 'x')}, kNone},
      {"no table", {kElf + "\1" + std::string(47, '\0')}, kNone},
      {"table ends early",
       {one64.substr(0, one64.size() - 1), one32.substr(0, one32.size() - 1)},
       kNone},
      {"low half of the table offset", {patched(one64, kElf64.table + 4, 0xFFFFFFFF, 4)}, 13},
      {"more entries than there are", {patched(one64, kElf64.count, 0xFFFF, 2)}, 13},
      {"more bytes than there are", {one64.substr(0, kElf64.header)}, kNone},
      {"huge size", {patched(one64, table64 + kElf64.size, 0x100000010, 8)}, kNone},
      {"negative size", {patched(one32, table32 + kElf32.size, 0x80000010, 4)}, kNone},
      {"offset after the end", {patched(one64, table64 + kElf64.offset, 0x7FFFFFFF, 8)}, kNone},
      {"damaged entry before a marker",
       {patched(second64, kElf64.header + 32 + kElf64.offset, 1 << 30, 8)},
       9},
      {"negative offset before a marker",
       {patched(second32, kElf32.header + 32 + kElf32.offset, 1U << 31, 4)},
       9}};
  for (const auto &[name, files, expected] : rows) {
    SCOPED_TRACE(name);
    const fs::path root = fresh();
    for (const std::string &file : files) write(root / std::to_string(file.size()), file);
    EXPECT_EQ(expected, level());
    EXPECT_THAT(platform.log,
                ::testing::HasSubstr(" highest API level in " + root.string() + "/|"));
    EXPECT_EQ(expected == kNone, platform.log.find("There is no file having .qel ") + 1 > 0);
  }
}

TEST_F(MarkerTest, VersionsAreComparedAsNumbers) {
  const std::string rising[] = {marker(12, 9, 9, 9),   marker(13, 2, 9, 9), marker(13, 3, 0, 9),
                                marker(13, 3, 0, 154), marker(13, 3, 1),    marker(13, 0x8000)};
  for (std::size_t i = 1; i < std::size(rising); ++i) {
    for (const char *place : {"file", "res/file"}) {
      const fs::path root = fresh();
      write(root / "file", elf(1, {rising[i - 1]}));
      write(root / "res/file", elf(1, {rising[i - 1]}));
      write(root / place, elf(2, {rising[i]}));
      const std::unique_ptr<qel_section_s, void (*)(void *)> found(
          qel_section_get_latest(root.c_str()), std::free);
      EXPECT_EQ(0, std::memcmp(found.get(), rising[i].data(), 16));
    }
  }
}

TEST_F(MarkerTest, TheWalkGoesOnAfterWhatIsNoMarker) {
  const fs::path root = fresh();
  const std::string far = std::string(52, '/');
  write(root / "51", std::string(51, 'x'));
  write(root / "junk", std::string(4000, 'x'));
  write(root / "short", kElf + "\2" + std::string(47, 'x'));
  mkfifo((root / "pipe").c_str(), 0600);
  const int pipe = open((root / "pipe").c_str(), O_RDWR);
  fs::create_symlink(far + root.string() + "/pipe", root / "to_pipe");
  fs::create_symlink(far + "dev/null", root / "to_device");
  fs::create_symlink(far, root / "to_folder");
  fs::create_symlink("short", root / "short_link");
  fs::create_symlink(far + "missing", root / "dangling");

  const auto descriptors = open_descriptors();
  for (const char *silent : {"51", "junk", "pipe", "to_pipe", "to_device", "short_link", "res"}) {
    EXPECT_EQ("", log_of(root / silent)) << silent;
  }
  const std::string failed = "E qel_section_read_file: Failed to ";
  for (const char *unreadable : {"short", "to_folder"}) {
    EXPECT_EQ(failed + "read ELF header|", log_of(root / unreadable));
  }
  const std::string dangling = root / "dangling";
  EXPECT_EQ(failed + "open " + dangling + " : No such file or directory|", log_of(dangling));
  EXPECT_EQ(descriptors, open_descriptors());
  close(pipe);
}

TEST_F(MarkerTest, AFileThatWasReplacedByAPipeDoesNotBlock) {
  const fs::path path = fresh() / "file";
  write(path, elf(1, {marker(5)}));
  struct stat status = {};
  lstat(path.c_str(), &status);
  fs::remove(path);
  mkfifo(path.c_str(), 0600);
  EXPECT_EQ(0, qel_section_read_file(path.c_str(), &status, FTW_F, nullptr));
}

TEST_F(MarkerTest, Links) {
  const fs::path root = fresh();
  write(directory() / "target", elf(2, {marker(14)}));
  fs::create_symlink("../target", root / "short");
  const std::string program = fs::read_symlink("/proc/self/exe").string();
  fs::create_symlink(std::string(60, '/') + program, root / "library");
  EXPECT_EQ(13, level()) << "the library's own marker, through a link that is long enough";
  EXPECT_LOG_HAS("/library), API level(13), QEL version(3.0.154)|");
  platform.resource_path = "abc";
  EXPECT_EQ(kNone, level());
  EXPECT_LOG_HAS("|E qel_section_get_latest: Failed to travel abc|");
  platform.resource_path = std::nullopt;
  EXPECT_EQ(kNone, level());
  EXPECT_LOG_HAS("|I qel_section_get_latest: Invalid parameter|");
}

}  // namespace
