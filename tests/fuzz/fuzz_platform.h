/** A platform whose service manager says whatever a fuzzer makes up. */
#ifndef KORVANE_TESTS_FUZZ_PLATFORM_H_
#define KORVANE_TESTS_FUZZ_PLATFORM_H_

#include <cstdint>
#include <string>
#include <vector>

#include "app_event.h"
#include "frame.h"

namespace fuzz {

/** What the next reads on a port find, in order; a port without parcels has lost its connection. */
void queue_main(const korvane::host::Bytes &parcel);
void queue_callback(const korvane::host::Bytes &parcel);

/** Reports the connection, its end, or a parcel on the callback port. */
void report_connected();
void report_disconnected();
void report_received();

/** Delivers an event to the subscription whose name ends like this, if there is one. */
void deliver_event(const char *suffix, const char *name, bundle_h payload);

/** A folder of this process, in memory where the machine has that; removed at the end. */
const std::string &scratch_folder();

/** Ends the test when a promise is broken. */
void require(bool held);

}  // namespace fuzz

#endif  // KORVANE_TESTS_FUZZ_PLATFORM_H_
