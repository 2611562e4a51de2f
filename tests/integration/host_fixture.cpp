#include "host_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "sockets/wait_limits.h"

thread_local bool AllocationFault::may_fail_ = false;
int AllocationFault::left_ = 0;

void *allocate(std::size_t size) {
  if (AllocationFault::may_fail_ && --AllocationFault::left_ == 0) return nullptr;
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

void AllocationFault::in_each_allocation(const std::function<void()> &test) {
  int number = 0;
  do {
    left_ = ++number;
    SCOPED_TRACE("allocation " + std::to_string(number));
    test();
  } while (has_occurred() && !testing::Test::HasFailure());
  EXPECT_GT(number, 1);
}

bool in_child(const std::function<bool()> &function) {
  const pid_t child = fork();
  if (child == 0) _exit(function() ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

HostTest::HostTest() {
  setenv("KORVANE_LOG", "none", 1);
  setenv("KORVANE_DEVICE", device_.c_str(), 1);
}

HostTest::~HostTest() {
  unsetenv("KORVANE_DEVICE");
  korvane::host::limits = {};
}

void HostTest::run_idle() {
  int served = 1;
  while (served == 1) served = loop().step(0);
  EXPECT_EQ(served, 0);
}
