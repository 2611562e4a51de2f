#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>

#include "library_test.h"
#include "qel-section.h"

namespace {

namespace fs = std::filesystem;

constexpr int kNone = SVCMGR_ERROR_NOT_SUPPORTED;
const std::string kOther(16, 'x');

std::string marker(unsigned level, unsigned major = 3, unsigned minor = 0, unsigned patch = 1) {
  std::string bytes("QEL\0\0\0\1\0", 8);
  for (const unsigned number : {level, major, minor, patch}) {
    bytes += static_cast<char>(number);
    bytes += static_cast<char>(number >> 8);
  }
  return bytes;
}

/** An ELF file: header, sections, section table. All fields that are not needed are 0xEE. */
template <char kClass, typename Header, typename Entry>
struct Elf {
  explicit Elf(const Texts &sections) : table(sections.size()) {
    std::memset(&header, 0xEE, sizeof(header));
    std::memset(table.data(), 0xEE, table.size() * sizeof(Entry));
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = kClass;
    for (std::size_t i = 0; i < sections.size(); ++i) {
      table[i].sh_offset = static_cast<Elf32_Off>(sizeof(header) + contents.size());
      table[i].sh_size = static_cast<Elf32_Word>(sections[i].size());
      contents += sections[i];
    }
    header.e_shoff = static_cast<Elf32_Off>(sizeof(header) + contents.size());
    header.e_shnum = static_cast<Elf32_Half>(sections.size());
  }
  operator std::string() const {
    return std::string(reinterpret_cast<const char *>(&header), sizeof(header)) + contents +
           std::string(reinterpret_cast<const char *>(table.data()), table.size() * sizeof(Entry));
  }
  Header header;
  std::string contents;
  std::vector<Entry> table;
};
using Elf32 = Elf<ELFCLASS32, Elf32_Ehdr, Elf32_Shdr>;
using Elf64 = Elf<ELFCLASS64, Elf64_Ehdr, Elf64_Shdr>;

void write(const fs::path &path, const std::string &bytes) {
  std::ofstream(path) << bytes;
}

std::ptrdiff_t open_descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

class MarkerTest : public LibraryTest {
 protected:
  /** A new directory of an application, which has a directory of resources. */
  fs::path install_application() {
    fs::path root = directory() / std::to_string(++applications);
    fs::create_directories(root / "res");
    platform.resource_path = (root / "res/").string();
    return root;
  }
  /** The level found; the code when there is none. */
  static int level() {
    int found = -77;
    platform.take_log();
    const int code = korvane_svcmgr_get_client_api_level(&found);
    EXPECT_EQ(code == SVCMGR_ERROR_NONE, found != -77);
    return code == SVCMGR_ERROR_NONE ? found : code;
  }
  /** The level of an application with these files. */
  int level_of(const Texts &files) {
    const fs::path root = install_application();
    for (const std::string &file : files) write(root / std::to_string(file.size()), file);
    return level();
  }
  /** What is logged about a file without a marker. */
  static Texts log_of_file(const fs::path &path) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    platform.take_log();
    EXPECT_EQ(0, qel_section_read_file(path.c_str(), &status, FTW_F, nullptr)) << "it goes on";
    return platform.take_log();
  }
  static std::string latest(const fs::path &root) {
    const std::unique_ptr<qel_section_s, void (*)(void *)> found(
        qel_section_get_latest(root.c_str()), std::free);
    return found ? std::string(reinterpret_cast<const char *>(found.get()), sizeof(*found)) : "";
  }
  int applications = 0;
};

// Which files have a level.

TEST_F(MarkerTest, FilesOfBothClassesAreRead) {
  EXPECT_EQ(12, level_of({Elf32({marker(12)})}));
  EXPECT_EQ(13, level_of({Elf64({marker(13)})}));
}

TEST_F(MarkerTest, AnyOtherClassIs64Bit) {
  Elf64 file({marker(65535)});
  file.header.e_ident[EI_CLASS] = 9;
  EXPECT_EQ(65535, level_of({file}));
}

TEST_F(MarkerTest, OfSeveralFilesTheHighestLevelCounts) {
  EXPECT_EQ(13, level_of({Elf32({marker(12)}), Elf64({marker(13)}), Elf32({marker(11), kOther})}));
}

TEST_F(MarkerTest, OfSeveralMarkersInAFileTheFirstCounts) {
  EXPECT_EQ(5, level_of({Elf64({marker(5), marker(6)})}));
}

TEST_F(MarkerTest, OfAThousandSectionsTheLastMayBeTheMarker) {
  Texts sections(1000, kOther);
  sections.push_back(marker(9));
  EXPECT_EQ(9, level_of({Elf32(sections)}));
}

TEST_F(MarkerTest, LevelZeroIsNone) {
  EXPECT_EQ(kNone, level_of({Elf64({marker(0, 9, 9, 9)})}));
  expect_logged(
      {"I korvane_svcmgr_get_client_api_level: Failed to get "
       "latest QEL section.\n"});
}

TEST_F(MarkerTest, AMarkerHas16Bytes) {
  EXPECT_EQ(kNone, level_of({Elf64({marker(5) + "x"})}));
}

TEST_F(MarkerTest, AMarkerBeginsWithItsMagic) {
  std::string almost = marker(5);
  almost[5] = '\1';
  EXPECT_EQ(kNone, level_of({Elf64({almost})}));
}

TEST_F(MarkerTest, HalfAMarkerIsNone) {
  Elf64 file({kOther});
  file.table[0].sh_offset = std::string(file).size();
  EXPECT_EQ(kNone, level_of({std::string(file) + marker(9).substr(0, 12)}));
}

TEST_F(MarkerTest, OtherFilesAreNotRead) {
  std::string no_elf = Elf32({marker(12)});
  no_elf[3] = 'f';
  EXPECT_EQ(kNone, level_of({no_elf, std::string(4000, 'x')}));
}

TEST_F(MarkerTest, AFileMayHaveNoTable) {
  EXPECT_EQ(kNone, level_of({ELFMAG "\1" + std::string(47, '\0')}));
  EXPECT_EQ(kNone, level_of({std::string(Elf64({marker(5)})).substr(0, sizeof(Elf64_Ehdr))}));
}

TEST_F(MarkerTest, ATableThatEndsEarlyHasNoLastEntry) {
  std::string file32 = Elf32({marker(5)}), file64 = Elf64({marker(5)});
  file32.pop_back();
  file64.pop_back();
  EXPECT_EQ(kNone, level_of({file32, file64}));
}

TEST_F(MarkerTest, TheLowHalfOfTheTablesOffsetCounts) {
  Elf64 file({marker(13)});
  file.header.e_shoff |= 0xFFFFFFFF00000000;
  EXPECT_EQ(13, level_of({file}));
}

TEST_F(MarkerTest, ATableMayClaimMoreEntriesThanItHas) {
  Elf64 file({marker(13)});
  file.header.e_shnum = 0xFFFF;
  EXPECT_EQ(13, level_of({file}));
}

TEST_F(MarkerTest, SizesThatNoFileHasAreNoMarkers) {
  Elf64 huge({marker(5)});
  huge.table[0].sh_size = 0x100000010;
  Elf32 negative({marker(5)});
  negative.table[0].sh_size = 0x80000010;
  EXPECT_EQ(kNone, level_of({huge, negative}));
}

TEST_F(MarkerTest, AnOffsetAfterTheEndIsNoMarker) {
  Elf64 file({marker(5)});
  file.table[0].sh_offset = 0x7FFFFFFF;
  EXPECT_EQ(kNone, level_of({file}));
}

TEST_F(MarkerTest, ADamagedEntryDoesNotHideAMarker) {
  Elf64 far({kOther, marker(9)});
  far.table[0].sh_offset = 1 << 30;
  EXPECT_EQ(9, level_of({far}));
  Elf32 negative({kOther, marker(9)});
  negative.table[0].sh_offset = 1U << 31;
  EXPECT_EQ(9, level_of({negative}));
}

TEST_F(MarkerTest, VersionsAreComparedAsNumbers) {
  const std::string rising[] = {marker(12, 9, 9, 9),   marker(13, 2, 9, 9), marker(13, 3, 0, 9),
                                marker(13, 3, 0, 154), marker(13, 3, 1),    marker(13, 0x8000)};
  for (std::size_t i = 1; i < std::size(rising); ++i) {
    for (const char *place : {"file", "res/file"}) {
      const fs::path root = install_application();
      write(root / "file", Elf32({rising[i - 1]}));
      write(root / "res/file", Elf32({rising[i - 1]}));
      write(root / place, Elf64({rising[i]}));
      EXPECT_EQ(rising[i], latest(root));
    }
  }
}

// Where the search goes.

TEST_F(MarkerTest, TheSearchBeginsAboveTheResources) {
  const fs::path root = install_application();
  write(root / "file", Elf32({marker(5)}));
  EXPECT_EQ(5, level());
  expect_logged({"D korvane_svcmgr_get_client_api_level: Start to find highest API level in " +
                 root.string() + "/"});
}

TEST_F(MarkerTest, AnApplicationWithoutMarkersIsLogged) {
  install_application();
  EXPECT_EQ(kNone, level());
  expect_logged({"E qel_section_get_latest: There is no file having .qel section"});
}

TEST_F(MarkerTest, AShortResourcePathIsSearchedItself) {
  platform.resource_path = "abc";
  EXPECT_EQ(kNone, level());
  expect_logged({"E qel_section_get_latest: Failed to travel abc"});
}

TEST_F(MarkerTest, AnApplicationWithoutResourcesHasNoLevel) {
  platform.resource_path = std::nullopt;
  EXPECT_EQ(kNone, level());
  expect_logged({"I qel_section_get_latest: Invalid parameter"});
}

TEST_F(MarkerTest, ALinkIsFollowedWhenItsTextIsLongEnough) {
  const fs::path root = install_application();
  write(directory() / "target", Elf64({marker(14)}));
  fs::create_symlink("../target", root / "short");
  const std::string program = fs::read_symlink("/proc/self/exe").string();
  fs::create_symlink(std::string(52, '/') + program, root / "library");
  EXPECT_EQ(13, level()) << "the library's own marker";
  EXPECT_THAT(platform.log_of("File("),
              ElementsAre(HasSubstr("/library), API level(13), QEL version(3.0.154)")));
}

// What is no file with a marker.

class UnmarkedFilesTest : public MarkerTest {
 protected:
  /** A link whose text is long enough to be followed. */
  fs::path link_to(const std::string &target) {
    fs::create_symlink(std::string(52, '/') + target, root / "link");
    return root / "link";
  }
  fs::path root = install_application();
};

TEST_F(UnmarkedFilesTest, SmallAndOtherFilesAreNotLogged) {
  for (const std::size_t size : {51U, 4000U}) {
    write(root / "file", std::string(size, 'x'));
    EXPECT_THAT(log_of_file(root / "file"), IsEmpty());
  }
}

TEST_F(UnmarkedFilesTest, ALinkWithAShortTextIsNotFollowed) {
  write(root / "file", ELFMAG "\2" + std::string(47, 'x'));
  fs::create_symlink("file", root / "link");
  EXPECT_THAT(log_of_file(root / "link"), IsEmpty());
}

TEST_F(UnmarkedFilesTest, AnIncompleteHeaderIsLogged) {
  write(root / "file", ELFMAG "\2" + std::string(47, 'x'));
  EXPECT_THAT(log_of_file(root / "file"),
              ElementsAre("E qel_section_read_file: Failed to read ELF header"));
}

TEST_F(UnmarkedFilesTest, ALinkToADirectoryIsLogged) {
  EXPECT_THAT(log_of_file(link_to("/")),
              ElementsAre("E qel_section_read_file: Failed to read ELF header"));
}

TEST_F(UnmarkedFilesTest, ADanglingLinkIsLoggedWithItsReason) {
  const fs::path link = link_to("missing");
  EXPECT_THAT(log_of_file(link), ElementsAre("E qel_section_read_file: Failed to open " +
                                             link.string() + " : No such file or directory"));
}

TEST_F(UnmarkedFilesTest, PipesAndDevicesAreNotOpened) {
  const fs::path pipe = root / "pipe";
  mkfifo(pipe.c_str(), 0600);
  const int keeps_pipe_open = open(pipe.c_str(), O_RDWR);
  EXPECT_THAT(log_of_file(pipe), IsEmpty());
  EXPECT_THAT(log_of_file(link_to(pipe.string())), IsEmpty());
  fs::remove(root / "link");
  EXPECT_THAT(log_of_file(link_to("dev/null")), IsEmpty());
  close(keeps_pipe_open);
}

TEST_F(UnmarkedFilesTest, AFileThatWasReplacedByAPipeDoesNotBlock) {
  const fs::path path = root / "file";
  write(path, Elf32({marker(5)}));
  struct stat status = {};
  lstat(path.c_str(), &status);
  fs::remove(path);
  mkfifo(path.c_str(), 0600);
  EXPECT_EQ(0, qel_section_read_file(path.c_str(), &status, FTW_F, nullptr));
}

TEST_F(UnmarkedFilesTest, EveryFileIsClosed) {
  write(root / "junk", std::string(4000, 'x'));
  write(root / "marked", Elf64({marker(5)}));
  write(root / "short", ELFMAG "\2" + std::string(47, 'x'));
  const auto descriptors = open_descriptors();
  EXPECT_EQ(5, level());
  EXPECT_EQ(descriptors, open_descriptors());
}

TEST_F(MarkerTest, TwoThreadsSearchWithoutDisturbingEachOther) {
  const fs::path first = install_application(), second = install_application();
  write(first / "file", Elf64({marker(5)}));
  write(second / "file", Elf64({marker(9)}));
  std::string found_by_second;
  platform.on_log = [&](const std::string &) {
    platform.on_log = nullptr;
    std::thread([&] { found_by_second = latest(second); }).join();
  };
  EXPECT_EQ(marker(5), latest(first)) << "while the second search begins and ends";
  EXPECT_EQ(marker(9), found_by_second);
}

}  // namespace
