#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>

#include "library_test.h"
#include "qel-section.h"

using ::testing::HasSubstr;

namespace {

void put(std::string &file, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) file.at(at + i) = static_cast<char>(value >> (8 * i));
}

std::string marker(int level, int major = 3, int minor = 0, int patch = 1) {
  const auto short_of = [](int value) { return static_cast<std::uint16_t>(value); };
  const std::uint16_t fields[] = {
      0x4551, 0x4c, 0, 1, short_of(level), short_of(major), short_of(minor), short_of(patch)};
  return std::string(reinterpret_cast<const char *>(fields), sizeof(fields));
}

/** Where the fields that the reader uses lie in the headers of a class, and their sizes. */
struct Layout {
  std::size_t header, table, table_size, count, entry, size, offset, field;
};
constexpr Layout kElf32 = {52, 32, 4, 48, 40, 20, 16, 4}, kElf64 = {64, 40, 8, 60, 64, 32, 24, 8};

const std::string kElf = "\177ELF";

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
  put(file, layout.table, file.size(), layout.table_size);
  put(file, layout.count, sections.size(), 2);
  return file + table;
}

/** The file with one number changed. */
std::string patched(std::string file, std::size_t at, std::uint64_t value, std::size_t size) {
  put(file, at, value, size);
  return file;
}

// clang-format off
void write(const std::filesystem::path &path, const std::string &text) { std::ofstream(path) << text; }
// clang-format on

class MarkerTest : public LibraryTest {
 protected:
  /** Where the files of one search go. */
  std::filesystem::path fresh() {
    const auto root = directory() / std::to_string(++searches);
    std::filesystem::create_directories(root / "res");
    platform.resource_path = (root / "res/").string();
    return root;
  }
  /** The level found; the code when there is none. */
  int level() {
    int found = -77;
    platform.take_log();
    const int code = korvane_svcmgr_get_client_api_level(&found);
    return code == 0 ? found : code;
  }
  int searches = 0;
};

constexpr int kNone = SVCMGR_ERROR_NOT_SUPPORTED;

TEST_F(MarkerTest, Files) {
  const std::string other(16, 'x'), far = elf(2, {other, marker(9)});
  std::vector<std::string> many(1000, other);
  many.push_back(marker(9));
  const std::size_t table64 = kElf64.header + 16, table32 = kElf32.header + 16;
  const std::string one32 = elf(1, {marker(12)}), one64 = elf(2, {marker(13)});
  // clang-format off
  const std::tuple<const char *, Texts, int> rows[] = {
      {"32-bit", Texts{one32}, 12}, {"64-bit", Texts{one64}, 13},
      {"any other class is 64-bit", Texts{elf(9, {marker(65535)})}, 65535},
      {"highest of several", Texts{one32, one64, elf(1, {marker(11)})}, 13},
      {"only the first marker of a file", Texts{elf(2, {marker(5), marker(6)})}, 5},
      {"of a thousand sections the last", Texts{elf(1, many), elf(2, many)}, 9},
      {"level 0 is none", Texts{elf(2, {marker(0, 9, 9, 9)})}, kNone},
      {"of 17 bytes", Texts{elf(2, {marker(5) + "x"})}, kNone},
      {"other magic", Texts{elf(2, {patched(marker(5), 5, 1, 1)})}, kNone},
      {"no ELF file", Texts{patched(one64, 3, 'f', 1), std::string(4000, 'x')}, kNone},
      {"too short", Texts{kElf + "\2" + std::string(47, 'x')}, kNone},
      {"no table", Texts{kElf + "\1" + std::string(47, '\0')}, kNone},
      {"table ends early", Texts{one64.substr(0, one64.size() - 1), one32.substr(0, one32.size() - 1)}, kNone},
      {"low half of the table offset", Texts{patched(one64, kElf64.table + 4, 0xFFFFFFFF, 4)}, 13},
      {"more entries than there are", Texts{patched(one64, kElf64.count, 0xFFFF, 2)}, 13},
      {"huge size", Texts{patched(one64, table64 + kElf64.size, 0x100000010, 8)}, kNone},
      {"offset after the end", Texts{patched(one64, table64 + kElf64.offset, 0x7FFFFFFF, 8)}, kNone},
      {"negative size", Texts{patched(one32, table32 + kElf32.size, 0x80000010, 4)}, kNone},
      {"a damaged entry is passed over", Texts{patched(far, kElf64.header + 32 + kElf64.offset, 1 << 30, 8)}, 9}};
  // clang-format on
  for (const auto &[name, files, expected] : rows) {
    const auto root = fresh();
    int number = 0;
    for (const std::string &file : files) write(root / std::to_string(++number), file);
    EXPECT_EQ(expected, level()) << name;
    EXPECT_THAT(platform.log, HasSubstr(" highest API level in " + root.string() + "/|"));
    EXPECT_EQ(expected == kNone, platform.log.find("There is no file having .qel ") + 1 > 0);
  }
}

TEST_F(MarkerTest, VersionsAreComparedAsNumbers) {
  const std::string rising[] = {marker(12, 9, 9, 9),   marker(13, 2, 9, 9), marker(13, 3, 0, 9),
                                marker(13, 3, 0, 154), marker(13, 3, 1),    marker(13, 0x8000)};
  for (std::size_t i = 1; i < std::size(rising); ++i) {
    const auto root = fresh();
    write(root / "res/file", elf(1, {rising[i - i % 2]}));
    write(root / "file", elf(2, {rising[i - 1 + i % 2]}));
    const std::unique_ptr<qel_section_s, void (*)(void *)> found(
        qel_section_get_latest(root.c_str()), std::free);
    EXPECT_EQ(0, std::memcmp(found.get(), rising[i].data(), 16));
  }
}

TEST_F(MarkerTest, LinksAndMissingThings) {
  const auto root = fresh();
  write(directory() / "target", elf(2, {marker(14)}));
  std::filesystem::create_symlink("../target", root / "short");
  std::filesystem::create_symlink("/" + std::string(60, 'x'), root / "dangling");
  std::filesystem::create_symlink(own_program(), root / "library");
  EXPECT_EQ(13, level()) << "the library's own marker, through a link that is long enough";
  EXPECT_THAT(platform.log, HasSubstr("/dangling : No such file or directory|"));
  EXPECT_THAT(platform.log, HasSubstr("/library), API level(13), QEL version(3.0.154)|"));
  for (const auto &path : {std::optional<std::string>("abc"), std::optional<std::string>()}) {
    platform.resource_path = path;
    EXPECT_EQ(kNone, level());
  }
}

}  // namespace
