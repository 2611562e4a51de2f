#ifndef KORVANE_SVCMGRCTL_TABLE_H_
#define KORVANE_SVCMGRCTL_TABLE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace korvane::svcmgrctl {

struct TableColumn {
  std::string title;
  bool wraps;  ///< its texts may be spread over several lines, between words
};

using TableRow = std::vector<std::string>;

/**
 * Lays rows out under their titles, in aligned columns. Where that is wider than width, the columns
 * that may do so wrap; nothing is ever cut. Texts of any origin are printable in it.
 */
std::string format_table(const std::vector<TableColumn> &titles, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TABLE_H_
