/** A device directory to try things with. */
#ifndef KORVANE_EMULATOR_SAMPLE_DEVICE_H_
#define KORVANE_EMULATOR_SAMPLE_DEVICE_H_

#include "device/device.h"

namespace korvane::emulator {

constexpr char kSampleApplication[] = "com.example.viewer";

/**
 * Makes a device: the service manager, three agents with a category each, an
 * application whose installation holds marked ELF files of both classes, and
 * the service manager's state. Throws std::runtime_error, also when the
 * directory is a device already or holds other things, and leaves nothing behind then.
 */
void create_sample_device(const host::Device &device);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_SAMPLE_DEVICE_H_
