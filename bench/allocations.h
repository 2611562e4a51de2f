/** Counts what the whole program takes from the heap. */
#ifndef KORVANE_BENCH_ALLOCATIONS_H_
#define KORVANE_BENCH_ALLOCATIONS_H_

#include <cstddef>

namespace bench {

struct Allocations {
  std::size_t count;
  std::size_t bytes;  ///< as asked for

  /** Since the program began. */
  static Allocations so_far();
};

}  // namespace bench

#endif  // KORVANE_BENCH_ALLOCATIONS_H_
