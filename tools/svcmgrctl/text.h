#ifndef KORVANE_SVCMGRCTL_TEXT_H_
#define KORVANE_SVCMGRCTL_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane::svcmgrctl {

/** Decodes UTF-8; every byte that belongs to no valid sequence becomes U+FFFD. */
std::u32string decode_utf8(std::string_view bytes);
std::string encode_utf8(std::u32string_view text);

/**
 * Replaces by U+FFFD whatever could drive a terminal or reorder what it shows, so that a text of
 * any origin can be printed. Line feeds and tabs stay.
 */
std::u32string printable(std::u32string text);

/** Number of terminal columns that a printable text of one line takes. */
std::size_t display_width(std::u32string_view text);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_TEXT_H_
