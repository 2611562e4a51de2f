#include "allocations.h"

namespace {

bench::Allocations taken = {0, 0};

void *counted(void *memory, std::size_t size) {
  ++taken.count;
  taken.bytes += size;
  return memory;
}

}  // namespace

bench::Allocations bench::Allocations::so_far() {
  return taken;
}

// Replace the C library's functions for the whole program, including the C++ runtime.
extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);

void *malloc(std::size_t size) {
  return counted(__libc_malloc(size), size);
}

void *calloc(std::size_t count, std::size_t size) {
  return counted(__libc_calloc(count, size), count * size);
}

void *realloc(void *memory, std::size_t size) {
  return counted(__libc_realloc(memory, size), size);
}

}  // extern "C"
