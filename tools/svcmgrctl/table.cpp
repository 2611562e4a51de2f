#include "table.h"

#include <algorithm>
#include <sstream>

#include "terminal.h"

namespace korvane::svcmgrctl {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 10;  ///< columns do not wrap below this width

using Lines = std::vector<std::string>;

Lines wrap(const std::string &text, std::size_t width) {
  Lines lines(1);
  std::size_t taken = 0;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t length = display_width(word);
    if (taken > 0 && taken + 1 + length > width) {
      lines.emplace_back();
      taken = 0;
    }
    if (taken > 0) lines.back() += ' ';
    lines.back() += word;
    taken += length + (taken > 0 ? 1 : 0);
  }
  return lines;
}

/** One column of the table, starting with its title. */
struct Column {
  std::vector<Lines> cells;
  std::size_t width = 0;

  void measure() {
    width = 0;
    for (const Lines &cell : cells) {
      for (const std::string &line : cell) width = std::max(width, display_width(line));
    }
  }

  void fit(std::size_t room) {
    if (width <= room || room < kNarrowest) return;
    for (Lines &cell : cells) cell = wrap(cell.front(), room);
    measure();
  }
};

std::vector<Column> columns_of(const std::vector<TableColumn> &titles,
                               const std::vector<TableRow> &rows) {
  std::vector<Column> columns(titles.size());
  for (std::size_t i = 0; i < columns.size(); ++i) {
    columns[i].cells.push_back({titles[i].title});
    for (const TableRow &row : rows) columns[i].cells.push_back({printable_line(row[i])});
    columns[i].measure();
  }
  return columns;
}

/** Wraps the columns that allow it. They share the width that the other columns leave. */
void fit(std::vector<Column> &columns, const std::vector<TableColumn> &titles, std::size_t width) {
  std::size_t taken = kGap * (columns.size() - 1);
  std::size_t wrapping = 0;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (titles[i].wraps) {
      ++wrapping;
    } else {
      taken += columns[i].width;
    }
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!titles[i].wraps) continue;
    columns[i].fit((width - std::min(width, taken)) / wrapping);
    taken += columns[i].width;
    --wrapping;
  }
}

void append_row(std::string &text, const std::vector<Column> &columns, std::size_t row) {
  std::size_t height = 1;
  for (const Column &column : columns) height = std::max(height, column.cells[row].size());
  for (std::size_t i = 0; i < height; ++i) {
    std::size_t blanks = 0;
    for (const Column &column : columns) {
      const Lines &cell = column.cells[row];
      const std::string &line = i < cell.size() ? cell[i] : std::string();
      if (!line.empty()) text += std::string(blanks, ' ') + line;
      blanks = (line.empty() ? blanks : 0) + column.width - display_width(line) + kGap;
    }
    text += '\n';
  }
}

}  // namespace

std::string format_table(const std::vector<TableColumn> &titles, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width) {
  std::vector<Column> columns = columns_of(titles, rows);
  if (width) fit(columns, titles, *width);
  std::string text;
  for (std::size_t row = 0; row <= rows.size(); ++row) append_row(text, columns, row);
  return text;
}

}  // namespace korvane::svcmgrctl
