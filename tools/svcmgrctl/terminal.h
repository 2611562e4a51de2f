#ifndef KORVANE_SVCMGRCTL_TERMINAL_H_
#define KORVANE_SVCMGRCTL_TERMINAL_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::svcmgrctl {

/** The number of columns of standard output; none when it is not a terminal. */
std::optional<std::size_t> terminal_width();

/** Whether standard output is a terminal that can erase text. */
bool terminal_can_redraw();

/**
 * Makes untrusted text safe for a terminal: U+FFFD replaces invalid UTF-8, control characters and
 * characters that reorder text. Line feeds and tabs stay.
 */
std::string printable(std::string_view text);

/** As above for a single line: line feeds and tabs are replaced, too. */
std::string printable_line(std::string_view text);

/** Number of columns of a text on one line. */
std::size_t display_width(std::string_view text);

/** The start of a text that fits on one line. An ellipsis marks omitted text. */
std::string shortened(std::string_view text, std::size_t columns);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TERMINAL_H_
