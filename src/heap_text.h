/** Texts on the C heap: from the platform, or for the application to release with free. */
#ifndef KORVANE_SVCMGR_HEAP_TEXT_H_
#define KORVANE_SVCMGR_HEAP_TEXT_H_

#include <cstdint>
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

/** A copy of the text, or of its first limit bytes; throws std::bad_alloc. */
inline HeapText copy_text(const char *text, std::size_t limit = PTRDIFF_MAX) {
  HeapText copy(strndup(text, limit));
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

/** The text that a platform call stores; null when the call fails or stores none. */
template <typename Call>
HeapText take_text(Call call) {
  char *text = nullptr;
  const int error = call(&text);
  HeapText taken(text);
  if (error != 0) taken.reset();
  return taken;
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_HEAP_TEXT_H_
