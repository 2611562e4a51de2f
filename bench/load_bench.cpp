// The time to load a library into a process: bench_load LIBRARY. Nanoseconds of the clock.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>

#include "korvane_host.h"

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  korvane_host_main_loop_quit();  // the platform is there already: only the library itself counts
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
