#include "ports/rpc_port_protocol.h"

#include "guard.h"

namespace korvane::host {

Parcel Hello::encode() const {
  Parcel parcel;
  parcel.write_int32(kHelloMagic);
  parcel.write_int32(static_cast<std::int32_t>(port));
  parcel.write_string(token);
  parcel.write_string(app_id);
  return parcel;
}

std::optional<Hello> Hello::decode(Parcel parcel) {
  std::int32_t magic = 0;
  std::int32_t port = -1;
  Hello hello;
  if (!parcel.read_int32(magic) || magic != kHelloMagic || !parcel.read_int32(port) ||
      !parcel.read_string(hello.token) || !parcel.read_string(hello.app_id) ||
      (port != static_cast<std::int32_t>(Port::kMain) &&
       port != static_cast<std::int32_t>(Port::kCallback))) {
    return std::nullopt;
  }
  hello.port = static_cast<Port>(port);
  return hello;
}

std::filesystem::path rpc_socket_path(const Device &device, const std::string &app_id,
                                      const std::string &port_name) {
  if (!is_plain_name(app_id) || !is_plain_name(port_name)) fail(EINVAL, "RPC port");
  return device.run_directory(std::filesystem::path("rpc") / app_id) / port_name;
}

}  // namespace korvane::host
