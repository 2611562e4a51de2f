#include "process.h"

#include <pthread.h>

#include <atomic>

namespace korvane::host {

namespace {

std::atomic<unsigned> generation{0};

[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { ++generation; });

}  // namespace

unsigned process_generation() {
  return generation;
}

}  // namespace korvane::host
