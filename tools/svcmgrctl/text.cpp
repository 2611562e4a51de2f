#include "text.h"

#include <wchar.h>

#include <algorithm>
#include <array>

namespace korvane::svcmgrctl {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

/** A form of UTF-8 sequences: first bytes with (byte & mask) == lead begin one. */
struct SequenceForm {
  unsigned mask;
  unsigned lead;
  std::size_t length;
  char32_t smallest;  ///< anything below is an overlong form
};

constexpr std::array<SequenceForm, 4> kForms = {{{0x80, 0x00, 1, 0x0},
                                                 {0xE0, 0xC0, 2, 0x80},
                                                 {0xF0, 0xE0, 3, 0x800},
                                                 {0xF8, 0xF0, 4, 0x10000}}};

/** Length of the sequence at the start of bytes, stored in code_point; 0 when there is none. */
std::size_t decode_first(std::string_view bytes, char32_t &code_point) {
  const auto byte = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const auto form = std::find_if(kForms.begin(), kForms.end(), [&](const SequenceForm &candidate) {
    return (byte(0) & candidate.mask) == candidate.lead;
  });
  if (form == kForms.end() || form->length > bytes.size()) return 0;
  char32_t value = byte(0) & ~form->mask;
  for (std::size_t i = 1; i < form->length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) return 0;
    value = (value << 6U) | (byte(i) & 0x3FU);
  }
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < form->smallest || value > 0x10FFFF || surrogate) return 0;
  code_point = value;
  return form->length;
}

struct Range {
  char32_t first;
  char32_t last;
};

/** Control characters, line and paragraph separators, and the marks that change the direction. */
constexpr std::array<Range, 6> kUnprintable = {{{0x00, 0x1F},
                                                {0x7F, 0x9F},
                                                {0x061C, 0x061C},
                                                {0x200E, 0x200F},
                                                {0x2028, 0x202E},
                                                {0x2066, 0x2069}}};

bool is_printable(char32_t code_point) {
  if (code_point == U'\n' || code_point == U'\t') return true;
  return std::none_of(kUnprintable.begin(), kUnprintable.end(), [code_point](Range range) {
    return code_point >= range.first && code_point <= range.last;
  });
}

}  // namespace

std::u32string decode_utf8(std::string_view bytes) {
  std::u32string text;
  while (!bytes.empty()) {
    char32_t code_point = kReplacement;
    const std::size_t length = decode_first(bytes, code_point);
    text += code_point;
    bytes.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

std::string encode_utf8(std::u32string_view text) {
  std::string bytes;
  for (const char32_t code_point : text) {
    const auto form = std::find_if(kForms.rbegin(), kForms.rend(),
                                   [&](const SequenceForm &f) { return code_point >= f.smallest; });
    for (std::size_t i = 0; i < form->length; ++i) {
      const char32_t bits = code_point >> (6U * (form->length - 1 - i));
      bytes += static_cast<char>(i == 0 ? form->lead | bits : 0x80U | (bits & 0x3FU));
    }
  }
  return bytes;
}

std::u32string printable(std::u32string text) {
  std::replace_if(
      text.begin(), text.end(), [](char32_t c) { return !is_printable(c); }, kReplacement);
  return text;
}

std::size_t display_width(std::u32string_view text) {
  std::size_t width = 0;
  for (const char32_t code_point : text) {
    const int columns = wcwidth(static_cast<wchar_t>(code_point));
    width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
  }
  return width;
}

}  // namespace korvane::svcmgrctl
