#ifndef KORVANE_SVCMGRCTL_TABLE_H_
#define KORVANE_SVCMGRCTL_TABLE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace korvane::svcmgrctl {

struct TableColumn {
  std::string title;
  bool wraps;  ///< texts may wrap between words
};

using TableRow = std::vector<std::string>;

/**
 * Formats rows under their titles in aligned columns. If the table is wider than width, columns
 * that allow it wrap; texts are never cut. Untrusted text is made printable.
 */
std::string format_table(const std::vector<TableColumn> &titles, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TABLE_H_
