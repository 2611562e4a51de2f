// Loads a library: bench_load LIBRARY. Prints the elapsed time in nanoseconds.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>

#include "korvane_host.h"

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  korvane_host_main_loop_quit();  // links the platform, so that it is loaded before the measurement
  const auto begin = std::chrono::steady_clock::now();
  void *library = dlopen(argv[1], RTLD_NOW);
  const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - begin;
  if (library == nullptr) {
    std::fprintf(stderr, "bench_load: %s\n", dlerror());
    return 1;
  }
  dlclose(library);
  std::printf("%lld\n", static_cast<long long>(taken.count()));
  return 0;
}
