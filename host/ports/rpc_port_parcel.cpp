// The C functions of parcels.
#include "guard.h"
#include "ports/rpc_port_handles.h"
#include "rpc_port.h"

using korvane::host::guarded;
using korvane::host::heap_copy;

namespace {

/** Runs a write on a parcel and records a failure. */
template <typename Write>
int append(rpc_port_parcel_h parcel, Write write) {
  if (parcel == nullptr) return -EINVAL;
  const int error = guarded([&] {
    write(parcel->parcel);
    return 0;
  });
  if (error != 0) parcel->write_failed = true;
  return error;
}

/** Runs a read on a parcel; the read returns whether there was such a value. */
template <typename Read>
int take(rpc_port_parcel_h parcel, const void *target, Read read) {
  return guarded([&] {
    if (parcel == nullptr || target == nullptr) return -EINVAL;
    return read(parcel->parcel) ? 0 : -EIO;
  });
}

}  // namespace

int rpc_port_parcel_create(rpc_port_parcel_h *parcel) {
  return guarded([=] {
    if (parcel == nullptr) return -EINVAL;
    *parcel = new rpc_port_parcel_s;
    return 0;
  });
}

int rpc_port_parcel_destroy(rpc_port_parcel_h parcel) {
  if (parcel == nullptr) return -EINVAL;
  delete parcel;
  return 0;
}

int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int value) {
  return append(parcel, [value](auto &to) { to.write_int32(value); });
}

int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value) {
  return append(parcel, [value](auto &to) { to.write_bool(value); });
}

int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char *text) {
  return append(parcel, [text](auto &to) {
    if (text == nullptr) korvane::host::fail(EINVAL, "null text");
    to.write_string(text);
  });
}

int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count) {
  return append(parcel, [count](auto &to) { to.write_array_count(count); });
}

int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int *value) {
  return take(parcel, value, [value](auto &from) { return from.read_int32(*value); });
}

int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool *value) {
  return take(parcel, value, [value](auto &from) { return from.read_bool(*value); });
}

int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int *count) {
  return take(parcel, count, [count](auto &from) { return from.read_array_count(*count); });
}

int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char **text) {
  return take(parcel, text, [text](auto &from) {
    std::string_view value;
    if (!from.read_string(value)) return false;
    *text = heap_copy(value);
    return true;
  });
}
