#ifndef KORVANE_SVCMGRCTL_TABLE_H_
#define KORVANE_SVCMGRCTL_TABLE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace korvane::svcmgrctl {

using TableRow = std::vector<std::string>;

/**
 * Lays rows out under their titles, in aligned columns. When that is wider than width, each row
 * becomes a block of its own with one title and text a line, wrapped, so that nothing is cut.
 */
std::string format_table(const TableRow &titles, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TABLE_H_
