#include "qel-section.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <tuple>

#include "log.h"

namespace {

constexpr char kMagic[6] = {'Q', 'E', 'L', '\0', '\0', '\0'};

/** The highest marker of the search that this thread is running. */
thread_local qel_section_s latest;

/** Where an ELF class keeps the fields that the search needs. */
struct ElfLayout {
  std::size_t header_size;
  std::size_t table_offset;  ///< in the header; its low 32 bits are used
  std::size_t entry_count;   ///< in the header, 16 bits
  std::size_t entry_size;
  std::size_t section_offset;  ///< in an entry
  std::size_t section_size;    ///< in an entry
  std::size_t word_size;       ///< of the two fields above, in bytes
};

constexpr ElfLayout kElf32 = {52, 32, 48, 40, 16, 20, 4};
constexpr ElfLayout kElf64 = {64, 40, 60, 64, 24, 32, 8};
constexpr std::size_t kElfClassOffset = 4;
constexpr unsigned char kElfClass32 = 1;

struct CloseFile {
  void operator()(std::FILE *file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/** A little-endian number of the given width in bytes. */
std::uint64_t read_number(const unsigned char *bytes, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value |= std::uint64_t{bytes[i]} << (8 * i);
  return value;
}

/** A section's size or offset; values that no file of the device can have count as 0. */
off_t read_extent(const unsigned char *bytes, std::size_t width) {
  const std::uint64_t value = read_number(bytes, width);
  return value <= 0x7FFFFFFF ? static_cast<off_t>(value) : 0;
}

enum class ReadAt { kDone, kFailed, kBehindEnd };

ReadAt read_at(std::FILE *file, off_t offset, void *target, std::size_t size) {
  if (fseeko(file, offset, SEEK_SET) != 0) return ReadAt::kFailed;
  if (std::fread(target, size, 1, file) == 1) return ReadAt::kDone;
  return std::feof(file) != 0 ? ReadAt::kBehindEnd : ReadAt::kFailed;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is the platform log's own

/** Opens a file and reads its ELF header; null, after a log line, when that fails. */
File open_elf(const svcmgr::Site &site, const char *path, unsigned char *header,
              std::size_t header_size) {
  File file(std::fopen(path, "rb"));
  if (file == nullptr) {
    LOG_ERROR_AT(site, "Failed to open %s : %m", path);
  } else if (std::fread(header, header_size, 1, file.get()) != 1) {
    LOG_ERROR_AT(site, "Failed to read ELF header");
    file.reset();
  }
  return file;
}

#pragma GCC diagnostic pop

/** The first marker among the sections of a file. */
std::optional<qel_section_s> find_marker(std::FILE *file, const unsigned char *header,
                                         const ElfLayout &layout) {
  const auto table = static_cast<off_t>(read_number(header + layout.table_offset, 4));
  const auto count = read_number(header + layout.entry_count, 2);
  for (std::uint64_t i = 0; i < count; ++i) {
    unsigned char entry[64] = {};
    const auto position = table + static_cast<off_t>(i * layout.entry_size);
    const ReadAt read = read_at(file, position, entry, layout.entry_size);
    if (read == ReadAt::kBehindEnd) break;  // all further entries lie behind the end, too
    if (read == ReadAt::kFailed) continue;
    qel_section_s section = {};
    if (read_extent(entry + layout.section_size, layout.word_size) != sizeof(section)) continue;
    const off_t offset = read_extent(entry + layout.section_offset, layout.word_size);
    if (read_at(file, offset, &section, sizeof(section)) != ReadAt::kDone) continue;
    if (std::memcmp(section.magic, kMagic, sizeof(kMagic)) == 0) return section;
  }
  return std::nullopt;
}

/** A link to something that is no file: opening a pipe or a device could block or have effects. */
bool links_to_special_file(const char *path, const struct stat &status) {
  struct stat target = {};
  return S_ISLNK(status.st_mode) && stat(path, &target) == 0 && !S_ISREG(target.st_mode) &&
         !S_ISDIR(target.st_mode);
}

}  // namespace

qel_section_s *qel_section_get_latest(const char *root_path) {
  if (root_path == nullptr) {
    LOG_INFO("Invalid parameter");
    return nullptr;
  }
  latest = {};
  if (nftw(root_path, qel_section_read_file, 0, FTW_PHYS | FTW_DEPTH) == -1) {
    LOG_ERROR("Failed to travel %s", root_path);
    return nullptr;
  }
  if (latest.api_level == 0) {
    LOG_ERROR("There is no file having .qel section");
    return nullptr;
  }
  auto *result = static_cast<qel_section_s *>(std::malloc(sizeof(qel_section_s)));
  if (result == nullptr) {
    LOG_ERROR("malloc failed");
    return nullptr;
  }
  *result = latest;
  return result;
}

int qel_section_read_file(const char *path, const struct stat *status, int type_flag,
                          struct FTW * /*position*/) {
  if (type_flag == FTW_NS) return 0;  // the status record was not filled
  const bool too_small = static_cast<std::uint32_t>(status->st_size) < kElf32.header_size;
  if (S_ISDIR(status->st_mode) || too_small || links_to_special_file(path, *status)) return 0;

  unsigned char header[kElf64.header_size] = {};
  File file = open_elf(HERE, path, header, kElf32.header_size);
  if (file == nullptr || std::memcmp(header,
                                     "\x7F"
                                     "ELF",
                                     4) != 0)
    return 0;
  const ElfLayout &layout = header[kElfClassOffset] == kElfClass32 ? kElf32 : kElf64;
  if (&layout == &kElf64) {
    file.reset();
    file = open_elf(HERE, path, header, kElf64.header_size);
    if (file == nullptr) return 0;
  }
  const std::optional<qel_section_s> section = find_marker(file.get(), header, layout);
  file.reset();
  if (section) qel_section_update_latest_version(path, *section);
  return 0;
}

void qel_section_update_latest_version(const char *path, qel_section_s section) {
  LOG_DEBUG("File(%s), API level(%u), QEL version(%u.%u.%u)", path, section.api_level,
            section.major, section.minor, section.patch);
  const auto rank = [](const qel_section_s &s) {
    return std::make_tuple(s.api_level, s.major, s.minor, s.patch);
  };
  if (rank(section) > rank(latest)) latest = section;
}
