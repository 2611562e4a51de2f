#ifndef KORVANE_SVCMGRCTL_TERMINAL_H_
#define KORVANE_SVCMGRCTL_TERMINAL_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::svcmgrctl {

/** Columns of the terminal that standard output is; none when it is no terminal. */
std::optional<std::size_t> terminal_width();

/** Whether standard output is a terminal that can take back what it shows. */
bool terminal_can_redraw();

/**
 * A text of any origin as a terminal may show it: U+FFFD stands for whatever is no UTF-8, could
 * drive the terminal, or reorders what it shows. Line feeds and tabs stay.
 */
std::string printable(std::string_view text);

/** The same on one line: line feeds and tabs are replaced, too. */
std::string printable_line(std::string_view text);

/** Number of columns that a text takes on one line. */
std::size_t display_width(std::string_view text);

/** As much of the front of a text as fits, on one line; an ellipsis tells that there is more. */
std::string shortened(std::string_view text, std::size_t columns);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TERMINAL_H_
