#include "service_port.h"

#include <chrono>
#include <iostream>
#include <utility>

namespace korvane::emulator {

using host::Port;
using ConnectionId = host::RpcPortServer::ConnectionId;

void ServicePort::open() {
  ++openings_;
  host::RpcPortServer::Events events;
  events.accept = [this](const Peer &peer) {
    trace_.note((faults_.reject ? "-- rejected " : "-- accepted ") + quoted(peer.app_id));
    return !faults_.reject;
  };
  events.connected = [this](ConnectionId id, const Peer &peer) { peers_[id] = peer; };
  events.disconnected = [this](ConnectionId id) {
    peers_.erase(id);
    trace_.note("-- " + std::to_string(id) + " disconnected");
  };
  events.received = [this](ConnectionId id, Parcel parcel) {
    trace_.request(id, parcel);
    const auto peer = peers_.find(id);
    if (peer == peers_.end()) return;
    try {
      received_({openings_, id}, peer->second, std::move(parcel));
    } catch (const std::exception &error) {
      // The client would wait for an answer that is never sent.
      std::cerr << "svcmgr-emulator: a request failed: " << error.what() << '\n';
      server_->disconnect(id);
    }
  };
  server_ = std::make_unique<host::RpcPortServer>(loop_, SVCMGR_APP_ID, kPortName, events);
}

void ServicePort::close(std::function<void()> done) {
  // A stopped client does not delay other clients.
  constexpr std::chrono::seconds kLimit(2);
  server_->close(kLimit, [this, done = std::move(done)] {
    server_.reset();
    peers_.clear();
    done();
  });
}

void ServicePort::drop_connections() {
  if (server_ != nullptr) server_->disconnect_all();
}

bool ServicePort::is_current(const Address &address) const {
  return server_ != nullptr && address.opening == openings_;
}

void ServicePort::reply(const Address &address, const MethodInfo &info, const Parcel &answer) {
  if (!is_current(address)) return;
  send_stray_parcels(address);
  server_->send(address.connection, Port::kMain, answer);
  trace_.reply(address.connection, &info, answer);
}

void ServicePort::send_stray_parcels(const Address &address) {
  for (int left = std::exchange(faults_.stray_parcels, 0); left > 0; --left) {
    Parcel stray;
    stray.write_int32(left % 2 == 0 ? kCallbackCommand : -left);
    stray.write_string("stray");
    server_->send(address.connection, Port::kMain, stray);
    trace_.reply(address.connection, nullptr, stray);
  }
}

void ServicePort::send(const Address &address, DelegateEvent event) {
  if (const auto *fault = std::exchange(faults_.delegate_fault, nullptr)) fault->apply(event);
  if (!is_current(address)) return;
  Parcel header;
  header.write_int32(kCallbackCommand);
  write(header, event.block);
  header.write_int32(event.result);
  host::Bytes bytes = header.bytes();
  bytes.insert(bytes.end(), event.payload.begin(), event.payload.end());
  const Parcel parcel(std::move(bytes));
  for (int i = 0; i < event.copies; ++i) {
    server_->send(address.connection, Port::kCallback, parcel);
    trace_.callback(address.connection, parcel);
  }
}

void ServicePort::send_garbage(Port port, const host::Bytes &bytes) {
  if (server_ == nullptr) return;
  for (const ConnectionId id : server_->connections()) server_->send_raw(id, port, bytes);
}

}  // namespace korvane::emulator
