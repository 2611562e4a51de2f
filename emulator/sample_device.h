/** Creates a device directory with sample content. */
#ifndef KORVANE_EMULATOR_SAMPLE_DEVICE_H_
#define KORVANE_EMULATOR_SAMPLE_DEVICE_H_

#include "device/device.h"

namespace korvane::emulator {

constexpr char kSampleApplication[] = "com.example.viewer";

/**
 * Creates a device with the service manager, three agents with a category each, an application with
 * marked ELF files of both classes, and the service manager's state. Throws std::runtime_error,
 * also when the directory is already a device or contains other files; it is then left unchanged.
 */
void create_sample_device(const host::Device &device);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_SAMPLE_DEVICE_H_
