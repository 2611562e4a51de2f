#include "SvcMgrAppProxy.h"

#include <algorithm>

#include "api_frame.h"
#include "heap_text.h"
#include "log.h"

namespace rpc_port::SvcMgrAppProxy::proxy {

namespace {

using svcmgr::HeapText;
using svcmgr::ParcelOwner;

constexpr const char *kPortName = "SvcMgrAppPort";
constexpr int kCallbackPort = 1;

/** The value of a code that cannot be read: no known command, and as a result a failure. */
constexpr int kUnreadable = -1;

constexpr int kInvalidParameter = -22;
constexpr int kPermissionDenied = -13;
constexpr int kIOError = -5;

// Values in a parcel. A structure is written as its fields, one after the other.

void write_value(rpc_port_parcel_h parcel, int value) {
  rpc_port_parcel_write_int32(parcel, value);
}

void write_value(rpc_port_parcel_h parcel, const std::string &value) {
  rpc_port_parcel_write_string(parcel, value.c_str());
}

template <typename Element>
void write_value(rpc_port_parcel_h parcel, const std::vector<Element> &elements);

template <typename Struct>
auto write_value(rpc_port_parcel_h parcel, const Struct &value)
    -> decltype(value.Fields(), void()) {
  std::apply([parcel](const auto &...fields) { (write_value(parcel, fields), ...); },
             value.Fields());
}

template <typename Element>
void write_value(rpc_port_parcel_h parcel, const std::vector<Element> &elements) {
  rpc_port_parcel_write_array_count(parcel, static_cast<int>(elements.size()));
  for (const Element &element : elements) write_value(parcel, element);
}

// Reading returns whether all texts could be read.

bool read_value(rpc_port_parcel_h parcel, int &value) {
  value = 0;
  rpc_port_parcel_read_int32(parcel, &value);
  return true;
}

bool read_value(rpc_port_parcel_h parcel, std::string &value) {
  const HeapText text = svcmgr::take_text(
      [parcel](char **taken) { return rpc_port_parcel_read_string(parcel, taken); });
  value = text != nullptr ? text.get() : "";
  return text != nullptr;
}

template <typename Element>
bool read_value(rpc_port_parcel_h parcel, std::vector<Element> &elements);

template <typename Struct>
auto read_value(rpc_port_parcel_h parcel, Struct &value) -> decltype(value.Fields(), bool()) {
  return std::apply(
      [parcel](auto &...fields) {
        bool complete = true;
        ((complete = read_value(parcel, fields) && complete), ...);
        return complete;
      },
      value.Fields());
}

template <typename Element>
bool read_value(rpc_port_parcel_h parcel, std::vector<Element> &elements) {
  int count = 0;
  rpc_port_parcel_read_array_count(parcel, &count);
  std::vector<Element> read;
  for (int i = 0; i < count; ++i) {
    Element element;
    if (!read_value(parcel, element)) break;
    read.push_back(std::move(element));
  }
  elements = std::move(read);
  return true;
}

std::string read_text(rpc_port_parcel_h parcel) {
  std::string text;
  read_value(parcel, text);
  return text;
}

/** The next parcel of a port; null when it cannot be read, or when the port is null. */
ParcelOwner read_parcel(rpc_port_h port) {
  rpc_port_parcel_h handle = nullptr;
  if (port == nullptr || rpc_port_parcel_create_from_port(&handle, port) != 0) return ParcelOwner();
  return ParcelOwner(handle);
}

std::string make_tag(int id, int seq) {
  return std::to_string(id) + "::" + std::to_string(seq);
}

template <typename Body>
void run_port_callback(const char *operation, Body body) noexcept {
  svcmgr::run_callback(body, [operation](const char *text) {
    LOG_PROXY_ERROR(operation, "Event was not handled: %s", text);
  });
}

}  // namespace

template <typename Struct>
rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const Struct &value) {
  write_value(parcel, value);
  return parcel;
}

template <typename Struct>
rpc_port_parcel_h Read(rpc_port_parcel_h parcel, Struct &value) {
  read_value(parcel, value);
  return parcel;
}

template rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const AIModelInfo &info);
template rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const AIModelList &list);
template rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const AIUpdateProgressInfo &progress);
template rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const AgentNameList &list);
template rpc_port_parcel_h Read(rpc_port_parcel_h parcel, AIModelInfo &info);
template rpc_port_parcel_h Read(rpc_port_parcel_h parcel, AIModelList &list);
template rpc_port_parcel_h Read(rpc_port_parcel_h parcel, AIUpdateProgressInfo &progress);
template rpc_port_parcel_h Read(rpc_port_parcel_h parcel, AgentNameList &list);

int ReadCode(rpc_port_parcel_h parcel) {
  int code = kUnreadable;
  rpc_port_parcel_read_int32(parcel, &code);
  return code;
}

SvcMgrAppPort::CallbackBase::CallbackBase(DelegateId id, bool once)
    : id_(static_cast<std::int32_t>(id)), seq_(next_seq_.fetch_add(1)), once_(once) {}

std::string SvcMgrAppPort::CallbackBase::GetTag() const {
  return make_tag(id_, seq_);
}

void SvcMgrAppPort::CallbackBase::WriteDelegate(rpc_port_parcel_h parcel,
                                                const CallbackBase &delegate) {
  rpc_port_parcel_write_int32(parcel, delegate.id_);
  rpc_port_parcel_write_int32(parcel, delegate.seq_);
  rpc_port_parcel_write_bool(parcel, delegate.once_);
}

void SvcMgrAppPort::CallbackBase::ReadDelegate(rpc_port_parcel_h parcel, CallbackBase &delegate) {
  rpc_port_parcel_read_int32(parcel, &delegate.id_);
  rpc_port_parcel_read_int32(parcel, &delegate.seq_);
  rpc_port_parcel_read_bool(parcel, &delegate.once_);
}

SvcMgrAppPort::SvcMgrAppPort(IEventListener *listener, std::string target_app_id)
    : main_port_(nullptr),
      delegate_port_(nullptr),
      proxy_handle_(nullptr),
      listener_(listener),
      target_app_id_(std::move(target_app_id)) {
  if (rpc_port_proxy_create(&proxy_handle_) != 0) {
    LOG_PROXY_ERROR("SvcMgrAppPort", "Failed to create proxy");
    throw InvalidIOException();
  }
  rpc_port_proxy_add_connected_event_cb(proxy_handle_, OnConnectedCB, this);
  rpc_port_proxy_add_disconnected_event_cb(proxy_handle_, OnDisconnectedCB, this);
  rpc_port_proxy_add_rejected_event_cb(proxy_handle_, OnRejectedCB, this);
  rpc_port_proxy_add_received_event_cb(proxy_handle_, OnReceivedCB, this);
}

SvcMgrAppPort::~SvcMgrAppPort() {
  if (proxy_handle_ != nullptr) rpc_port_proxy_destroy(proxy_handle_);
  DropDelegates();
}

void SvcMgrAppPort::Register(std::unique_ptr<CallbackBase> delegate) {
  const Identity identity(delegate->GetSeq(), delegate->GetId());
  const auto place = std::upper_bound(
      delegates_.begin(), delegates_.end(), identity,
      [](const Identity &wanted, const auto &entry) { return wanted < entry.first; });
  delegates_.emplace(place, identity, std::move(delegate));
}

std::unique_ptr<SvcMgrAppPort::CallbackBase> SvcMgrAppPort::Remove(Delegates::iterator entry) {
  auto delegate = std::move(entry->second);
  delegates_.erase(entry);
  return delegate;
}

/** Empties the list before it deletes the delegates: their destructors may use the port. */
void SvcMgrAppPort::DropDelegates() {
  const Delegates dropped = std::exchange(delegates_, {});
}

void SvcMgrAppPort::Connect(bool sync) {
  const auto connect = sync ? rpc_port_proxy_connect_sync : rpc_port_proxy_connect;
  const int error = connect(proxy_handle_, target_app_id_.c_str(), kPortName);
  if (error == 0) return;
  LOG_PROXY_ERROR("Connect", "Failed to connect SvcMgrAppPort");
  switch (error) {
    case kInvalidParameter:
      throw InvalidIDException();
    case kPermissionDenied:
      throw PermissionDeniedException();
    case kIOError:
      throw InvalidIOException();
    default:
      break;
  }
}

// Events of the platform. The listener and the delegates may destroy the port, so nothing of it is
// used after they were called.

void SvcMgrAppPort::OnConnectedCB(const char * /*endpoint*/, const char * /*port_name*/,
                                  rpc_port_h port, void *user_data) {
  run_port_callback("OnConnectedCB", [port, user_data] {
    auto *self = static_cast<SvcMgrAppPort *>(user_data);
    self->main_port_ = port;
    rpc_port_proxy_get_port(self->proxy_handle_, kCallbackPort, &self->delegate_port_);
    self->listener_->OnConnected();
  });
}

void SvcMgrAppPort::OnDisconnectedCB(const char * /*endpoint*/, const char * /*port_name*/,
                                     void *user_data) {
  run_port_callback("OnDisconnectedCB", [user_data] {
    auto *self = static_cast<SvcMgrAppPort *>(user_data);
    self->DropDelegates();
    self->listener_->OnDisconnected();
  });
}

void SvcMgrAppPort::OnRejectedCB(const char * /*endpoint*/, const char * /*port_name*/,
                                 void *user_data) {
  run_port_callback("OnRejectedCB", [user_data] {
    static_cast<SvcMgrAppPort *>(user_data)->listener_->OnRejected();
  });
}

void SvcMgrAppPort::OnReceivedCB(const char * /*endpoint*/, const char * /*port_name*/,
                                 void *user_data) {
  run_port_callback("OnReceivedCB",
                    [user_data] { static_cast<SvcMgrAppPort *>(user_data)->Receive(); });
}

void SvcMgrAppPort::Receive() {
  const ParcelOwner parcel = read_parcel(delegate_port_);
  if (parcel == nullptr) {
    LOG_PROXY_ERROR("OnReceivedCB", "Failed to create parcel from port");
    return;
  }
  if (ReadCode(parcel.get()) == static_cast<int>(MethodId::Callback)) {
    DispatchDelegate(parcel.get());
  }
}

void SvcMgrAppPort::DispatchDelegate(rpc_port_parcel_h parcel) {
  int id = 0;
  int seq = 0;
  bool once = false;
  rpc_port_parcel_read_int32(parcel, &id);
  rpc_port_parcel_read_int32(parcel, &seq);
  rpc_port_parcel_read_bool(parcel, &once);
  const Identity identity(seq, id);
  const auto found = std::lower_bound(
      delegates_.begin(), delegates_.end(), identity,
      [](const auto &entry, const Identity &wanted) { return entry.first < wanted; });
  if (found == delegates_.end() || found->first != identity) return;
  if (found->second->IsOnce()) {
    Remove(found)->ReceiveParcel(parcel);
  } else {
    found->second->ReceiveParcel(parcel);
  }
}

ParcelOwner SvcMgrAppPort::NewRequest(const char *operation, MethodId method) const {
  if (main_port_ == nullptr) {
    LOG_PROXY_ERROR(operation, "Not connected");
    throw NotConnectedSocketException();
  }
  rpc_port_parcel_h handle = nullptr;
  const int error = rpc_port_parcel_create(&handle);
  ParcelOwner request(handle);
  if (error != 0 || handle == nullptr) {
    LOG_PROXY_ERROR(operation, "Failed to send parcel. result(%d)", error);
    throw InvalidIOException();
  }
  rpc_port_parcel_write_int32(request.get(), static_cast<int>(method));
  return request;
}

void SvcMgrAppPort::Send(const char *operation, ParcelOwner &request) const {
  const int error = rpc_port_parcel_send(request.get(), main_port_);
  if (error != 0) {
    LOG_PROXY_ERROR(operation, "Failed to send parcel. result(%d)", error);
    request.reset();
    throw InvalidIOException();
  }
}

ParcelOwner SvcMgrAppPort::WaitForResult() const {
  for (;;) {
    ParcelOwner parcel = read_parcel(main_port_);
    if (parcel == nullptr || ReadCode(parcel.get()) == static_cast<int>(MethodId::Result)) {
      return parcel;
    }
  }
}

template <typename Result, typename... Arguments>
Result SvcMgrAppPort::Call(const char *operation, MethodId method,
                           Result (*read)(rpc_port_parcel_h), const Arguments &...arguments) {
  ParcelOwner reply;  // released after the request
  ParcelOwner request = NewRequest(operation, method);
  (write_value(request.get(), arguments), ...);
  {
    const std::lock_guard<std::recursive_mutex> guard(lock_);
    Send(operation, request);
    reply = WaitForResult();
  }
  if (reply == nullptr) {
    LOG_PROXY_ERROR(operation, "Invalid protocol");
    throw InvalidProtocolException();
  }
  return read(reply.get());
}

template <typename... Arguments>
void SvcMgrAppPort::CallLater(const char *operation, MethodId method,
                              std::unique_ptr<CallbackBase> delegate,
                              const Arguments &...arguments) {
  ParcelOwner request = NewRequest(operation, method);
  CallbackBase::WriteDelegate(request.get(), *delegate);
  (write_value(request.get(), arguments), ...);
  const std::lock_guard<std::recursive_mutex> guard(lock_);
  Register(std::move(delegate));
  Send(operation, request);
}

int SvcMgrAppPort::get_agent_api_level() {
  return Call(__func__, MethodId::get_agent_api_level, ReadCode);
}

std::string SvcMgrAppPort::get_license() {
  return Call(__func__, MethodId::get_license, read_text);
}

int SvcMgrAppPort::request_update() {
  return Call(__func__, MethodId::request_update, ReadCode);
}

int SvcMgrAppPort::request_update_with_list(const AgentNameList &agents) {
  return Call(__func__, MethodId::request_update_with_list, ReadCode, agents);
}

void SvcMgrAppPort::GetUsableModelList(std::unique_ptr<GetUsableModelListCallback> delegate,
                                       const std::string &app_id, const std::string &app_version) {
  CallLater(__func__, MethodId::GetUsableModelList, std::move(delegate), app_id, app_version);
}

void SvcMgrAppPort::GetUsableModelListWithDesc(
    std::unique_ptr<GetUsableModelListWithDescCallback> delegate, const std::string &app_id,
    const std::string &app_version) {
  CallLater(__func__, MethodId::GetUsableModelListWithDesc, std::move(delegate), app_id,
            app_version);
}

void SvcMgrAppPort::GetModelVersionList(std::unique_ptr<GetModelVersionListCallback> delegate,
                                        const AIModelInfo &model, const std::string &app_id,
                                        const std::string &app_version) {
  CallLater(__func__, MethodId::GetModelVersionList, std::move(delegate), model, app_id,
            app_version);
}

void SvcMgrAppPort::RequestToUpdate(std::unique_ptr<RequestToUpdateCallback> delegate,
                                    const AIModelList &models) {
  CallLater(__func__, MethodId::RequestToUpdate, std::move(delegate), models);
}

void SvcMgrAppPort::RequestToUninstall(std::unique_ptr<RequestToUninstallCallback> delegate,
                                       const AIModelList &models) {
  CallLater(__func__, MethodId::RequestToUninstall, std::move(delegate), models);
}

void SvcMgrAppPort::RemoveDelegateByTag(const std::string &tag) {
  const auto found = std::find_if(delegates_.begin(), delegates_.end(), [&tag](const auto &entry) {
    return make_tag(entry.first.second, entry.first.first) == tag;
  });
  if (found != delegates_.end()) Remove(found);
}

}  // namespace rpc_port::SvcMgrAppProxy::proxy
