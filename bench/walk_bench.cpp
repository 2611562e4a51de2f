// The lower bound of the marker search: bench_walk DIRECTORY. Opens every file and reads its first
// bytes. Prints the number of files.
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace {

constexpr off_t kHeaderSize = 64;
int files = 0;

int visit(const char *path, const struct stat *status, int type, FTW * /*position*/) {
  if (type != FTW_F || status->st_size < kHeaderSize) return 0;
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return 0;
  char header[kHeaderSize];
  if (read(descriptor, header, sizeof(header)) == kHeaderSize) ++files;
  close(descriptor);
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 || nftw(argv[1], visit, 0, FTW_PHYS | FTW_DEPTH) != 0) return 2;
  std::printf("%d\n", files);
  return 0;
}
