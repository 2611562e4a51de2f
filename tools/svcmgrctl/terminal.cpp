#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>
#include <wctype.h>

#include <cstdlib>

namespace korvane::svcmgrctl {

namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr wchar_t kReplacement = L'\uFFFD';
constexpr wchar_t kEllipsis = L'\u2026';
/** Printable for the C library, but they change the direction of the text after them. */
constexpr wchar_t kDirectionMarks[] =
    L"\u061C\u200E\u200F\u202A\u202B\u202C\u202D\u202E\u2066\u2067\u2068\u2069";

bool is_harmless(wchar_t letter) {
  return iswprint(static_cast<wint_t>(letter)) != 0 && wcschr(kDirectionMarks, letter) == nullptr;
}

/** The characters of a text; kept: control characters that are not replaced. */
std::wstring harmless_letters(std::string_view text, const wchar_t *kept) {
  std::wstring letters;
  std::mbstate_t state = {};
  while (!text.empty()) {
    wchar_t letter = 0;
    std::size_t length = mbrtowc(&letter, text.data(), text.size(), &state);
    if (length == 0 || length > text.size()) {  // a NUL or an invalid sequence
      letter = 0;
      length = 1;
      state = {};
    }
    const bool is_kept = letter != 0 && wcschr(kept, letter) != nullptr;
    letters += is_kept || is_harmless(letter) ? letter : kReplacement;
    text.remove_prefix(length);
  }
  return letters;
}

std::wstring letters_of_line(std::string_view text) {
  return harmless_letters(text, L"");
}

std::string encoded(const std::wstring &letters) {
  std::string text(letters.size() * MB_CUR_MAX + 1, '\0');
  text.resize(std::wcstombs(text.data(), letters.c_str(), text.size()));
  return text;
}

std::size_t width_of(const std::wstring &letters) {
  const int width = wcswidth(letters.c_str(), letters.size());
  return width < 0 ? letters.size() : static_cast<std::size_t>(width);
}

}  // namespace

std::optional<std::size_t> terminal_width() {
  if (isatty(STDOUT_FILENO) == 0) return std::nullopt;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualWidth;
  return size.ws_col;
}

bool terminal_can_redraw() {
  const char *kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

std::string printable(std::string_view text) {
  return encoded(harmless_letters(text, L"\n\t"));
}

std::string printable_line(std::string_view text) {
  return encoded(letters_of_line(text));
}

std::size_t display_width(std::string_view text) {
  return width_of(letters_of_line(text));
}

std::string shortened(std::string_view text, std::size_t columns) {
  std::wstring letters = letters_of_line(text);
  if (width_of(letters) > columns) {
    while (!letters.empty() && width_of(letters) >= columns) letters.pop_back();
    if (columns > 0) letters += kEllipsis;
  }
  return encoded(letters);
}

}  // namespace korvane::svcmgrctl
