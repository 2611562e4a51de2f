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

/** An ELF file: header, sections, section table. */
template <char kClass, typename Header, typename Entry>
struct Elf {
  explicit Elf(const Texts &sections) : table(sections.size()) {
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
  Header header = {};
  std::string contents;
  std::vector<Entry> table;
};
using Elf32 = Elf<ELFCLASS32, Elf32_Ehdr, Elf32_Shdr>;
using Elf64 = Elf<ELFCLASS64, Elf64_Ehdr, Elf64_Shdr>;

/** Long enough to be read as an ELF file, with less than a header. */
const std::string kShortHeader = ELFMAG "\2" + std::string(47, 'x');

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
    for (std::size_t i = 0; i < files.size(); ++i) write(root / std::to_string(i), files[i]);
    return level();
  }
  /** What an application without a level logs about its files. */
  static Texts log_of_files() {
    EXPECT_EQ(kNone, level());
    return platform.log_of(" qel_section_read_file: ");
  }
  /** A link whose text is long enough to be followed. */
  static void create_long_link(const std::string &target, const fs::path &link) {
    fs::create_symlink(std::string(52, '/') + target, link);
  }
  static std::string latest(const fs::path &root) {
    const std::unique_ptr<qel_section_s, void (*)(void *)> found(
        qel_section_get_latest(root.c_str()), std::free);
    return found ? std::string(reinterpret_cast<const char *>(found.get()), sizeof(*found)) : "";
  }
  int applications = 0;
};

// Which files have a level.

TEST_F(MarkerTest, FilesOfAllClassesAreRead) {
  EXPECT_EQ(12, level_of({Elf32({marker(12)})}));
  Elf64 file({marker(65535)});
  EXPECT_EQ(65535, level_of({file}));
  file.header.e_ident[EI_CLASS] = 9;
  EXPECT_EQ(65535, level_of({file})) << "any other class is 64-bit";
}

TEST_F(MarkerTest, OfSeveralMarkersInAFileTheFirstCounts) {
  EXPECT_EQ(5, level_of({Elf64({marker(5), marker(6)})}));
}

TEST_F(MarkerTest, OfAThousandSectionsTheLastMayBeTheMarker) {
  Texts sections(1000, kOther);
  sections.push_back(marker(9));
  EXPECT_EQ(9, level_of({Elf32(sections)}));
}

TEST_F(MarkerTest, AMarkerHas16BytesItsMagicAndALevel) {
  std::string almost = marker(5);
  almost[5] = '\1';
  Elf64 half({kOther});
  half.table[0].sh_offset = std::string(half).size();
  EXPECT_EQ(kNone, level_of({Elf64({marker(5) + "x"}), std::string(half) + marker(9).substr(0, 12),
                             Elf64({almost}), Elf64({marker(0, 9, 9, 9)})}));
  expect_logged(
      {"I korvane_svcmgr_get_client_api_level: Failed to get "
       "latest QEL section.\n"});
}

TEST_F(MarkerTest, FilesWithoutAMagicOrAWholeTableAreNotLogged) {
  std::string no_elf = Elf32({marker(12)}), cut = Elf64({marker(5)});
  no_elf[3] = 'f';
  cut.pop_back();
  EXPECT_EQ(kNone, level_of({no_elf, std::string(51, 'x'), std::string(4000, 'x'), cut,
                             cut.substr(0, sizeof(Elf64_Ehdr))}));
  EXPECT_THAT(platform.log_of(" qel_section_read_file: "), IsEmpty());
  expect_logged({"E qel_section_get_latest: There is no file having .qel section"});
}

TEST_F(MarkerTest, ADamagedTableDoesNotHideAMarker) {
  Elf64 file({marker(5), marker(6), marker(9)});
  file.header.e_shnum = 0xFFFF;
  file.table[0].sh_offset = 1 << 30;
  file.table[1].sh_size = 0x100000010;
  EXPECT_EQ(9, level_of({file}));
  Elf32 small({marker(5), marker(6), marker(9)});
  small.table[0].sh_offset = 1U << 31;
  small.table[1].sh_size = 0x80000010;
  EXPECT_EQ(9, level_of({small}));
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

// Where the search looks.

TEST_F(MarkerTest, AnApplicationWithAShortOrNoResourcePathHasNoLevel) {
  platform.resource_path = "abc";
  EXPECT_EQ(kNone, level());
  expect_logged({"D korvane_svcmgr_get_client_api_level: Start to find highest API level in abc",
                 "E qel_section_get_latest: Failed to travel abc"});
  platform.resource_path = std::nullopt;
  EXPECT_EQ(kNone, level());
  expect_logged({"I qel_section_get_latest: Invalid parameter"});
}

TEST_F(MarkerTest, ALinkIsFollowedWhenItsTextIsLongEnough) {
  const fs::path root = install_application();
  write(directory() / "target", Elf64({marker(14)}));
  fs::create_symlink("../target", root / "short");
  create_long_link(fs::read_symlink("/proc/self/exe").string(), root / "library");
  EXPECT_EQ(13, level()) << "the library's own marker";
  EXPECT_THAT(platform.log_of("File("),
              ElementsAre(HasSubstr("/library), API level(13), QEL version(3.0.154)")));
}

// Files without a marker.

TEST_F(MarkerTest, AnIncompleteHeaderAndALinkToADirectoryAreLogged) {
  const fs::path root = install_application();
  write(root / "file", kShortHeader);
  create_long_link("/", root / "link");
  EXPECT_THAT(log_of_files(),
              Contains("E qel_section_read_file: Failed to read ELF header").Times(2));
}

TEST_F(MarkerTest, ADanglingLinkIsLoggedWithItsReason) {
  const fs::path link = install_application() / "link";
  create_long_link("missing", link);
  EXPECT_THAT(log_of_files(), ElementsAre("E qel_section_read_file: Failed to open " +
                                          link.string() + " : No such file or directory"));
}

TEST_F(MarkerTest, PipesAndDevicesAreNotOpened) {
  const fs::path root = install_application(), pipe = root / "pipe";
  mkfifo(pipe.c_str(), 0600);
  const int keeps_pipe_open = open(pipe.c_str(), O_RDWR);
  create_long_link(pipe.string(), root / "link to pipe");
  create_long_link("dev/null", root / "link to device");
  EXPECT_THAT(log_of_files(), IsEmpty());
  close(keeps_pipe_open);
}

TEST_F(MarkerTest, AFileThatWasReplacedByAPipeDoesNotBlock) {
  const fs::path path = install_application() / "file";
  write(path, Elf32({marker(5)}));
  struct stat status = {};
  lstat(path.c_str(), &status);
  fs::remove(path);
  mkfifo(path.c_str(), 0600);
  EXPECT_EQ(0, qel_section_read_file(path.c_str(), &status, FTW_F, nullptr));
}

TEST_F(MarkerTest, EveryFileIsClosed) {
  const auto descriptors = open_descriptors();
  EXPECT_EQ(5, level_of({std::string(4000, 'x'), Elf64({marker(5)}), kShortHeader}));
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
