/** The types behind the handles of RPC ports. */
#ifndef KORVANE_HOST_RPC_PORT_HANDLES_H_
#define KORVANE_HOST_RPC_PORT_HANDLES_H_

#include "ports/parcel.h"
#include "rpc_port.h"
#include "sockets/frame.h"
#include "sockets/unique_fd.h"

namespace korvane::host {
class RpcPortProxy;
}

struct rpc_port_parcel_s {
  korvane::host::Parcel parcel;
  bool write_failed = false;  ///< the message is incomplete and is not sent
};

/** One socket of a connection. Used by one thread at a time. */
struct rpc_port_s {
  korvane::host::RpcPortProxy *proxy = nullptr;
  korvane::host::UniqueFd socket;
  korvane::host::FrameReader reader;
};

#endif  // KORVANE_HOST_RPC_PORT_HANDLES_H_
