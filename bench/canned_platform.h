/**
 * A platform of canned answers: it costs next to nothing, so that what is measured on it is the
 * library's own share. It takes memory only where the contract wants a heap text.
 *
 * One connection at a time, one parcel of each kind at a time, nothing checked.
 */
#ifndef KORVANE_BENCH_CANNED_PLATFORM_H_
#define KORVANE_BENCH_CANNED_PLATFORM_H_

#include <cstdint>
#include <string>

namespace bench {

/** The heap texts that the platform hands over for each model of a list. */
constexpr int kTextsOfAModel = 4;

/** Names the request that an answer belongs to. */
struct DelegateBlock {
  int id;
  int sequence;
};

/** What app_get_resource_path answers. */
void set_resource_path(const std::string &path);

/** The connection that was started is made. */
void report_connected();

/** The delegate block of the last request that was sent. */
DelegateBlock last_request();

/** Delivers an answer of so many models. */
void deliver_models(DelegateBlock delegate, int count);

/** Delivers a progress report. */
void deliver_progress(DelegateBlock delegate);

}  // namespace bench

#endif  // KORVANE_BENCH_CANNED_PLATFORM_H_
