#include "table.h"

#include <algorithm>
#include <numeric>

#include "text.h"

namespace korvane::svcmgrctl {

namespace {

using Cells = std::vector<std::u32string>;

constexpr std::size_t kGap = 2;
/** Text is never wrapped into a column narrower than this. */
constexpr std::size_t kSmallestColumn = 10;

/** A text that stays on its line and moves no cursor. */
std::u32string one_line(const std::string &bytes) {
  std::u32string text = printable(decode_utf8(bytes));
  std::replace_if(
      text.begin(), text.end(), [](char32_t c) { return c == U'\n' || c == U'\t'; }, U' ');
  return text;
}

Cells cells_of(const TableRow &row) {
  Cells cells;
  std::transform(row.begin(), row.end(), std::back_inserter(cells), one_line);
  return cells;
}

std::vector<std::size_t> column_widths(const std::vector<Cells> &rows) {
  std::vector<std::size_t> widths(rows.front().size(), 0);
  for (const Cells &row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }
  return widths;
}

std::u32string padded(std::u32string text, std::size_t width) {
  const std::size_t taken = display_width(text);
  if (taken < width) text.append(width - taken, U' ');
  return text;
}

std::u32string aligned_line(const Cells &row, const std::vector<std::size_t> &widths) {
  std::u32string line;
  for (std::size_t i = 0; i < row.size(); ++i) line += padded(row[i], widths[i] + kGap);
  line.erase(line.find_last_not_of(U' ') + 1);
  return line += U'\n';
}

/** Takes from text what fits into width, up to a space where there is one. */
std::u32string take_line(std::u32string &text, std::size_t width) {
  std::size_t end = 0;
  std::size_t taken = 0;
  while (end < text.size()) {
    taken += display_width(text.substr(end, 1));
    if (taken > width) break;
    ++end;
  }
  std::size_t next = end;
  if (end < text.size()) {
    const std::size_t space = text.rfind(U' ', end);
    if (space != std::u32string::npos && space > 0) {
      end = space;
      next = space + 1;
    }
  }
  std::u32string line = text.substr(0, end);
  text.erase(0, next);
  return line;
}

std::u32string block(const Cells &titles, Cells row, std::size_t width) {
  const std::vector<std::size_t> widths = column_widths({titles});
  const std::size_t indent = *std::max_element(widths.begin(), widths.end()) + kGap;
  const std::size_t room = std::max(width, indent + kSmallestColumn) - indent;
  std::u32string lines;
  for (std::size_t i = 0; i < row.size(); ++i) {
    std::u32string title = titles[i];
    do {
      lines += padded(title, indent) + take_line(row[i], room) + U'\n';
      title.clear();
    } while (!row[i].empty());
  }
  return lines;
}

}  // namespace

std::string format_table(const TableRow &titles, const std::vector<TableRow> &rows,
                         std::optional<std::size_t> width) {
  std::vector<Cells> all = {cells_of(titles)};
  std::transform(rows.begin(), rows.end(), std::back_inserter(all), cells_of);
  const std::vector<std::size_t> widths = column_widths(all);
  const std::size_t total =
      std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  std::u32string text;
  if (!width || total <= *width) {
    for (const Cells &row : all) text += aligned_line(row, widths);
    return encode_utf8(text);
  }
  for (std::size_t i = 1; i < all.size(); ++i) {
    if (i > 1) text += U'\n';
    text += block(all.front(), all[i], *width);
  }
  return encode_utf8(text);
}

}  // namespace korvane::svcmgrctl
