#include "host_fixture.h"

#include <sys/wait.h>

#include <cstring>
#include <new>

thread_local bool ScarceMemory::is_scarce_ = false;
int ScarceMemory::left_ = 0;

void *allocate(std::size_t size) {
  if (ScarceMemory::is_scarce_ && --ScarceMemory::left_ == 0) return nullptr;
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

void expect_success(pid_t child) {
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

void ScarceMemory::tell(const std::function<void()> &story) {
  int number = 0;
  do {
    left_ = ++number;
    SCOPED_TRACE("allocation " + std::to_string(number));
    story();
  } while (left_ <= 0 && !testing::Test::HasFailure());
  EXPECT_GT(number, 1);
  left_ = 0;
}
