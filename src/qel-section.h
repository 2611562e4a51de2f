/** The marker section of ELF files, and the search for the highest one under a directory. */
#ifndef KORVANE_SVCMGR_QEL_SECTION_H_
#define KORVANE_SVCMGR_QEL_SECTION_H_

#include <ftw.h>
#include <sys/stat.h>

#include <cstdint>

/** A marker in its file format; all numbers are little-endian. */
struct qel_section_s {
  char magic[6];           ///< "QEL" and three zero bytes
  std::uint16_t reserved;  ///< not interpreted
  std::uint16_t api_level;
  std::uint16_t major;
  std::uint16_t minor;
  std::uint16_t patch;
};
static_assert(sizeof(qel_section_s) == 16, "the marker is a 16-byte file format");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "markers are read without conversion");

/**
 * The highest marker of all ELF files under root_path.
 *
 * @return a heap copy that the caller releases with free; null when root_path
 *         is null, the walk fails, no marker with an API level other than 0
 *         was found, or memory runs out
 */
qel_section_s *qel_section_get_latest(const char *root_path);

/** Reads one entry of the walk; the nftw callback. Always returns 0, so that the walk continues. */
int qel_section_read_file(const char *path, const struct stat *status, int type_flag,
                          struct FTW *position);

/** Logs a marker that was found in the file at path, and keeps it if it is the highest. */
void qel_section_update_latest_version(const char *path, qel_section_s section);

#endif  // KORVANE_SVCMGR_QEL_SECTION_H_
