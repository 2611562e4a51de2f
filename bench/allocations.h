/** Counts heap allocations of the whole program. */
#ifndef KORVANE_BENCH_ALLOCATIONS_H_
#define KORVANE_BENCH_ALLOCATIONS_H_

#include <cstddef>

namespace bench {

struct Allocations {
  std::size_t count;
  std::size_t bytes;  ///< as requested

  /** Since the program was started. */
  static Allocations so_far();
};

}  // namespace bench

#endif  // KORVANE_BENCH_ALLOCATIONS_H_
