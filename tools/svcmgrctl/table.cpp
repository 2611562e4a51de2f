#include "table.h"

#include <libsmartcols/libsmartcols.h>

#include <cstdlib>
#include <memory>
#include <new>

namespace korvane::svcmgrctl {

namespace {

struct TableReleaser {
  void operator()(libscols_table *table) const { scols_unref_table(table); }
};
struct TextReleaser {
  void operator()(char *text) const { std::free(text); }
};

/** The calls below fail for want of memory only. */
void check(int result) {
  if (result != 0) throw std::bad_alloc();
}

template <typename Made>
Made *check(Made *made) {
  if (made == nullptr) throw std::bad_alloc();
  return made;
}

}  // namespace

std::string format_table(const std::vector<TableColumn> &columns, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width) {
  const std::unique_ptr<libscols_table, TableReleaser> owner(check(scols_new_table()));
  libscols_table *table = owner.get();
  check(scols_table_set_column_separator(table, "  "));
  check(scols_table_set_termforce(table, width ? SCOLS_TERMFORCE_ALWAYS : SCOLS_TERMFORCE_NEVER));
  check(scols_table_set_termwidth(table, width.value_or(0)));
  for (const TableColumn &column : columns) {
    const int flags = column.wraps ? SCOLS_FL_WRAP : 0;
    check(scols_table_new_column(table, column.title.c_str(), 0, flags));
  }
  for (const TableRow &row : rows) {
    libscols_line *line = check(scols_table_new_line(table, nullptr));
    for (std::size_t i = 0; i < row.size(); ++i) {
      check(scols_line_set_data(line, i, row[i].c_str()));
    }
  }
  char *text = nullptr;
  check(scols_print_table_to_string(table, &text));
  return std::unique_ptr<char, TextReleaser>(text).get();
}

}  // namespace korvane::svcmgrctl
