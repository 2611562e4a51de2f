#include "qel-section.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <tuple>

#include "log.h"

namespace {

constexpr char kMagic[6] = {'Q', 'E', 'L', '\0', '\0', '\0'};

/** The highest marker of the search that this thread is running. */
thread_local qel_section_s latest;

/** The size of the pieces in which a section table is read, in bytes. */
constexpr std::size_t kTablePiece = 16384;

/** A file open for reading, without a buffer. */
class File {
 public:
  /** Does not block if the path has become a pipe or a device. */
  explicit File(const char *path)
      : descriptor_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  ~File() {
    if (is_open()) close(descriptor_);
  }

  bool is_open() const { return descriptor_ >= 0; }

  /** The number of bytes read; fewer than size at the end of the file or after an error. */
  std::size_t read_at(off_t offset, void *target, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t read = pread(descriptor_, static_cast<unsigned char *>(target) + done,
                                 size - done, offset + static_cast<off_t>(done));
      if (read <= 0) break;
      done += static_cast<std::size_t>(read);
    }
    return done;
  }

  off_t size() const { return lseek(descriptor_, 0, SEEK_END); }

 private:
  int descriptor_;
};

/** A section's size or offset; a value of 2 GiB or more counts as 0. */
off_t extent(std::uint64_t value) {
  return value <= 0x7FFFFFFF ? static_cast<off_t>(value) : 0;
}

/** The contents of the section of a table entry, if they are a marker. */
template <typename Entry>
std::optional<qel_section_s> read_marker(const File &file, const Entry &entry) {
  qel_section_s section = {};
  if (extent(entry.sh_size) != sizeof(section)) return {};
  if (file.read_at(extent(entry.sh_offset), &section, sizeof(section)) != sizeof(section))
    return {};
  if (std::memcmp(section.magic, kMagic, sizeof(kMagic)) != 0) return {};
  return section;
}

/**
 * The first marker among the sections of a file.
 *
 * The section table is read in pieces, so that memory use does not depend on
 * the file. Nearly every table fits into one piece.
 */
template <typename Entry>
std::optional<qel_section_s> find_marker(const File &file, off_t table, std::size_t count) {
  Entry piece[kTablePiece / sizeof(Entry)];
  const off_t room = std::max<off_t>(file.size() - table, 0);
  count = std::min(count, static_cast<std::size_t>(room) / sizeof(Entry));
  for (std::size_t next = 0; next < count;) {
    const std::size_t wanted = std::min(count - next, std::size(piece));
    const auto position = table + static_cast<off_t>(next * sizeof(Entry));
    const std::size_t read = file.read_at(position, piece, wanted * sizeof(Entry)) / sizeof(Entry);
    for (std::size_t i = 0; i < read; ++i) {
      const auto marker = read_marker(file, piece[i]);
      if (marker) return marker;
    }
    next += read < wanted ? read + 1 : read;  // skips an entry that cannot be read
  }
  return std::nullopt;
}

/** Whether a link leads to a pipe, socket or device: opening it could block or have effects. */
bool links_to_special_file(const char *path, const struct stat &status) {
  struct stat target = {};
  return S_ISLNK(status.st_mode) && stat(path, &target) == 0 && !S_ISREG(target.st_mode) &&
         !S_ISDIR(target.st_mode);
}

/** The marker of the file at path, if it has one. Failures to open or read are logged. */
std::optional<qel_section_s> read_file(const svcmgr::Site &site, const char *path) {
  const File file(path);
  if (!file.is_open()) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is the platform log's own
    LOG_ERROR_AT(site, "Failed to open %s : %m", path);
#pragma GCC diagnostic pop
    return {};
  }
  Elf64_Ehdr header = {};
  Elf32_Ehdr header32 = {};
  const std::size_t size = file.read_at(0, &header, sizeof(header));
  const bool is_elf = std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0;
  const bool is_64_bit = is_elf && header.e_ident[EI_CLASS] != ELFCLASS32;
  if (size < (is_64_bit ? sizeof(header) : sizeof(header32))) {
    LOG_ERROR_AT(site, "Failed to read ELF header");
    return {};
  }
  if (!is_elf) return {};
  if (is_64_bit) {
    const auto table = static_cast<std::uint32_t>(header.e_shoff);  // only the low half counts
    return find_marker<Elf64_Shdr>(file, table, header.e_shnum);
  }
  std::memcpy(&header32, &header, sizeof(header32));
  return find_marker<Elf32_Shdr>(file, header32.e_shoff, header32.e_shnum);
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
  const bool too_small = static_cast<std::uint32_t>(status->st_size) < sizeof(Elf32_Ehdr);
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
