/**
 * A platform with fixed answers. It costs almost nothing, so that measurements show the cost of the
 * library alone. It allocates only where the contract requires a heap text.
 *
 * It supports one connection and one parcel of each kind at a time, and checks nothing.
 */
#ifndef KORVANE_BENCH_CANNED_PLATFORM_H_
#define KORVANE_BENCH_CANNED_PLATFORM_H_

#include <cstdint>
#include <string>

namespace bench {

/** The heap texts that the platform returns for each model of a list. */
constexpr int kTextsOfAModel = 4;

/** Identifies the request that an answer belongs to. */
struct DelegateBlock {
  int id;
  int sequence;
};

/** Sets the result of app_get_resource_path. */
void set_resource_path(const std::string &path);

/** Reports the started connection as made. */
void report_connected();

/** The delegate block of the last request that was sent. */
DelegateBlock last_request();

/** Delivers an answer with this number of models. */
void deliver_models(DelegateBlock delegate, int count);

/** Delivers a progress report. */
void deliver_progress(DelegateBlock delegate);

}  // namespace bench

#endif  // KORVANE_BENCH_CANNED_PLATFORM_H_
