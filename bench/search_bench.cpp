// Searches a directory for markers: bench_search DIRECTORY. Prints the level found, or -1.
#include <cstdio>

#include "canned_platform.h"
#include "korvane_svcmgr.h"

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  bench::set_resource_path(std::string(argv[1]) + "/res/");
  int level = -1;
  korvane_svcmgr_get_client_api_level(&level);
  std::printf("%d\n", level);
  return 0;
}
