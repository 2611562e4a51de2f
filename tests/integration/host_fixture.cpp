#include "host_fixture.h"

#include <cstring>
#include <new>

namespace {

int failing = 0;  ///< the allocation that fails, counted from 1; 0 for none
int allocations = 0;

}  // namespace

thread_local bool ScarceMemory::is_scarce_ = false;

void *allocate(std::size_t size) {
  if (ScarceMemory::is_scarce_ && failing > 0 && ++allocations == failing) return nullptr;
  return std::malloc(size + 1);
}

void *operator new(std::size_t size) {
  void *memory = allocate(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void *memory) noexcept {
  std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}
extern "C" char *strndup(const char *text, std::size_t size) {
  const std::size_t length = strnlen(text, size);
  auto *copy = static_cast<char *>(allocate(length));
  if (copy != nullptr) std::strncpy(copy, text, length)[length] = '\0';
  return copy;
}

void ScarceMemory::tell(const std::function<void()> &story) {
  failing = 0;
  do {
    ++failing;
    allocations = 0;
    SCOPED_TRACE("allocation " + std::to_string(failing));
    story();
  } while (ran_out() && !testing::Test::HasFailure());
  EXPECT_GT(failing, 1);
  failing = 0;
}

bool ScarceMemory::ran_out() {
  return failing > 0 && allocations >= failing;
}
