/** The handshake of an RPC port. */
#ifndef KORVANE_HOST_RPC_PORT_PROTOCOL_H_
#define KORVANE_HOST_RPC_PORT_PROTOCOL_H_

#include <filesystem>
#include <optional>
#include <string>

#include "device/device.h"
#include "ports/parcel.h"

namespace korvane::host {

// A client opens two connections to the socket of the port, main and callback, and sends a hello on
// each. The token of the hello pairs them. The server then answers on the main connection.

constexpr std::int32_t kHelloMagic = 0x314B5652;  // "RVK1"
constexpr std::int32_t kAccepted = 0;
constexpr std::int32_t kRejected = 1;

enum class Port : std::int32_t { kMain = 0, kCallback = 1 };

struct Hello {
  Port port = Port::kMain;
  std::string token;
  std::string app_id;

  Parcel encode() const;
  static std::optional<Hello> decode(Parcel parcel);
};

/** The socket path of a port. Creates its folder when missing. Throws std::system_error. */
std::filesystem::path rpc_socket_path(const Device &device, const std::string &app_id,
                                      const std::string &port_name);

}  // namespace korvane::host

#endif  // KORVANE_HOST_RPC_PORT_PROTOCOL_H_
