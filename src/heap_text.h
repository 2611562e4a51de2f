/** Texts on the C heap: what the platform hands over, and what the application releases with free.
 */
#ifndef KORVANE_SVCMGR_HEAP_TEXT_H_
#define KORVANE_SVCMGR_HEAP_TEXT_H_

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace svcmgr {

struct Free {
  void operator()(void *memory) const noexcept { std::free(memory); }
};

using HeapText = std::unique_ptr<char, Free>;

/** The longest text, without its NUL, that a model info keeps or hands out. */
constexpr std::size_t kModelTextLimit = 2048;

inline HeapText check_copied(char *copy) {
  if (copy == nullptr) throw std::bad_alloc();
  return HeapText(copy);
}

/** A copy of the whole text; throws std::bad_alloc. */
inline HeapText copy_text(const char *text) {
  return check_copied(strdup(text));
}

/** A copy of at most limit bytes of the text; throws std::bad_alloc. */
inline HeapText copy_text(const char *text, std::size_t limit) {
  return check_copied(strndup(text, limit));
}

/** What a platform call that hands out a text came to. */
struct TakenText {
  int error;
  HeapText text;  ///< null when the call handed out none
};

template <typename Call>
TakenText take_text(Call call) {
  char *text = nullptr;
  const int error = call(&text);
  return {error, HeapText(text)};
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_HEAP_TEXT_H_
