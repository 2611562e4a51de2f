#include "qel-section.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
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
constexpr char kElfMagic[4] = {'\x7F', 'E', 'L', 'F'};
constexpr std::size_t kElfClassOffset = 4;
constexpr unsigned char kElfClass32 = 1;

/** How much of a section table is read at a time, in bytes. */
constexpr std::size_t kTablePiece = 16384;

/** What a read came to: all bytes that were wanted, or those before the end or before a failure. */
struct Read {
  std::size_t size;
  bool failed;
};

/** A file open for reading. Nothing is read but what is asked for. */
class File {
 public:
  explicit File(const char *path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {}
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  ~File() {
    if (is_open()) close(descriptor_);
  }

  bool is_open() const { return descriptor_ >= 0; }

  Read read_at(off_t offset, void *target, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t read = pread(descriptor_, static_cast<unsigned char *>(target) + done,
                                 size - done, offset + static_cast<off_t>(done));
      if (read <= 0) return {done, read < 0};
      done += static_cast<std::size_t>(read);
    }
    return {done, false};
  }

 private:
  int descriptor_;
};

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

/** The marker that a table entry leads to, if it does. */
std::optional<qel_section_s> read_marker(const File &file, const unsigned char *entry,
                                         const ElfLayout &layout) {
  qel_section_s section = {};
  if (read_extent(entry + layout.section_size, layout.word_size) != sizeof(section)) return {};
  const off_t offset = read_extent(entry + layout.section_offset, layout.word_size);
  if (file.read_at(offset, &section, sizeof(section)).size != sizeof(section)) return {};
  if (std::memcmp(section.magic, kMagic, sizeof(kMagic)) != 0) return {};
  return section;
}

/**
 * The first marker among the sections of a file.
 *
 * The section table is read in pieces, so that no number of entries that a
 * file claims costs memory; nearly every table fits into one.
 */
std::optional<qel_section_s> find_marker(const File &file, const unsigned char *header,
                                         const ElfLayout &layout) {
  const auto table = static_cast<off_t>(read_number(header + layout.table_offset, 4));
  const auto count = static_cast<std::size_t>(read_number(header + layout.entry_count, 2));
  unsigned char piece[kTablePiece];
  for (std::size_t next = 0; next < count;) {
    const std::size_t wanted = std::min(count - next, sizeof(piece) / layout.entry_size);
    const auto position = table + static_cast<off_t>(next * layout.entry_size);
    const Read read = file.read_at(position, piece, wanted * layout.entry_size);
    const std::size_t complete = read.size / layout.entry_size;
    for (std::size_t i = 0; i < complete; ++i) {
      const auto marker = read_marker(file, piece + i * layout.entry_size, layout);
      if (marker) return marker;
    }
    next += complete;
    if (complete == wanted) continue;
    if (!read.failed) break;  // all further entries lie behind the end
    ++next;                   // an entry that cannot be read is passed over
  }
  return std::nullopt;
}

/** A link to something that is no file: opening a pipe or a device could block or have effects. */
bool links_to_special_file(const char *path, const struct stat &status) {
  struct stat target = {};
  return S_ISLNK(status.st_mode) && stat(path, &target) == 0 && !S_ISREG(target.st_mode) &&
         !S_ISDIR(target.st_mode);
}

/** The marker of the file at path; none, perhaps after a log line, when it has none. */
std::optional<qel_section_s> read_file(const svcmgr::Site &site, const char *path) {
  const File file(path);
  if (!file.is_open()) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is the platform log's own
    LOG_ERROR_AT(site, "Failed to open %s : %m", path);
#pragma GCC diagnostic pop
    return {};
  }
  unsigned char header[kElf64.header_size] = {};
  const std::size_t header_size = file.read_at(0, header, sizeof(header)).size;
  const bool is_elf = std::memcmp(header, kElfMagic, sizeof(kElfMagic)) == 0;
  const ElfLayout &layout = is_elf && header[kElfClassOffset] != kElfClass32 ? kElf64 : kElf32;
  if (header_size < layout.header_size) {
    LOG_ERROR_AT(site, "Failed to read ELF header");
    return {};
  }
  if (!is_elf) return {};
  return find_marker(file, header, layout);
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

  const std::optional<qel_section_s> marker = read_file(HERE, path);
  if (marker) qel_section_update_latest_version(path, *marker);
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
