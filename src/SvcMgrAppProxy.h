/**
 * The client side of the service manager's RPC interface: the connection, the
 * structures in its messages, and the delegates that receive asynchronous answers.
 *
 * The protocol fixes this interface. The library itself does not use most setters, ReadDelegate,
 * RemoveDelegateByTag, Write, and some forms of Read.
 */
#ifndef KORVANE_SVCMGR_SVC_MGR_APP_PROXY_H_
#define KORVANE_SVCMGR_SVC_MGR_APP_PROXY_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform_handles.h"
#include "rpc_port.h"

namespace rpc_port::SvcMgrAppProxy::proxy {

/** The base of the proxy's failures. Only the type distinguishes them. */
class Exception {};
/** The connection has not been made yet. */
class NotConnectedSocketException : public Exception {};
/** No result was received. */
class InvalidProtocolException : public Exception {};
/** The platform failed to create the proxy, to connect or to send. */
class InvalidIOException : public Exception {};
/** The platform does not accept the target's ID. */
class InvalidIDException : public Exception {};
/** The platform denies the connection. */
class PermissionDeniedException : public Exception {};

/** One AI model. */
class AIModelInfo {
 public:
  AIModelInfo() = default;
  AIModelInfo(std::string id, std::string version, std::string title, std::string description)
      : id_(std::move(id)),
        version_(std::move(version)),
        title_(std::move(title)),
        description_(std::move(description)) {}

  const std::string &GetId() const { return id_; }
  const std::string &GetVersion() const { return version_; }
  const std::string &GetTitle() const { return title_; }
  const std::string &GetDescription() const { return description_; }
  void SetId(std::string id) { id_ = std::move(id); }
  void SetVersion(std::string version) { version_ = std::move(version); }
  void SetTitle(std::string title) { title_ = std::move(title); }
  void SetDescription(std::string description) { description_ = std::move(description); }

  /** The fields in the order of the message. */
  auto Fields() { return std::tie(id_, version_, title_, description_); }
  auto Fields() const { return std::tie(id_, version_, title_, description_); }

 private:
  std::string id_;
  std::string version_;
  std::string title_;
  std::string description_;
};

/** Models, and their number as the sender states it. */
class AIModelList {
 public:
  AIModelList() = default;
  AIModelList(std::vector<AIModelInfo> models, int count)
      : models_(std::move(models)), count_(count) {}

  const std::vector<AIModelInfo> &GetModels() const { return models_; }
  int GetCount() const { return count_; }
  void SetModels(std::vector<AIModelInfo> models) { models_ = std::move(models); }
  void SetCount(int count) { count_ = count; }

  auto Fields() { return std::tie(models_, count_); }
  auto Fields() const { return std::tie(models_, count_); }

 private:
  std::vector<AIModelInfo> models_;
  int count_ = 0;
};

/** The progress of a model update or uninstallation. */
class AIUpdateProgressInfo {
 public:
  int GetState() const { return state_; }
  int GetIndex() const { return index_; }
  int GetCount() const { return count_; }
  int GetPercentage() const { return percentage_; }
  void SetState(int state) { state_ = state; }
  void SetIndex(int index) { index_ = index; }
  void SetCount(int count) { count_ = count; }
  void SetPercentage(int percentage) { percentage_ = percentage; }

  auto Fields() { return std::tie(state_, index_, count_, percentage_); }
  auto Fields() const { return std::tie(state_, index_, count_, percentage_); }

 private:
  int state_ = 0;
  int index_ = 0;
  int count_ = 0;
  int percentage_ = 0;
};

/** Agent names (package IDs), and their number as the sender states it. */
class AgentNameList {
 public:
  AgentNameList() = default;
  AgentNameList(std::vector<std::string> names, int count)
      : names_(std::move(names)), count_(count) {}

  const std::vector<std::string> &GetNames() const { return names_; }
  int GetCount() const { return count_; }
  void SetNames(std::vector<std::string> names) { names_ = std::move(names); }
  void SetCount(int count) { count_ = count; }

  auto Fields() { return std::tie(names_, count_); }
  auto Fields() const { return std::tie(names_, count_); }

 private:
  std::vector<std::string> names_;
  int count_ = 0;
};

/**
 * Write appends one of these structures to a parcel; Read replaces its fields by those in the
 * parcel. Both return the parcel.
 *
 * A text that cannot be read is an empty text; inside a list it ends the list,
 * whatever number of elements the parcel states.
 */
template <typename Struct>
rpc_port_parcel_h Write(rpc_port_parcel_h parcel, const Struct &value);
template <typename Struct>
rpc_port_parcel_h Read(rpc_port_parcel_h parcel, Struct &value);

/** Reads a command or a result code; -1 when the parcel does not hold one. */
int ReadCode(rpc_port_parcel_h parcel);

/**
 * One connection to the service manager.
 *
 * Construct, Connect, wait for the listener's OnConnected, call methods;
 * destroy to end the connection. The listener and the delegates may destroy the
 * port from inside their operations.
 */
class SvcMgrAppPort {
 public:
  /** Receives the events of the connection. Not owned by the port; must outlive it. */
  class IEventListener {
   public:
    virtual void OnConnected() = 0;
    virtual void OnDisconnected() = 0;
    virtual void OnRejected() = 0;

   protected:
    IEventListener() = default;
    IEventListener(const IEventListener &) = default;
    IEventListener &operator=(const IEventListener &) = default;
    ~IEventListener() = default;
  };

  enum class DelegateId : std::int32_t {
    GetUsableModelList = 1,
    GetUsableModelListWithDesc = 2,
    GetModelVersionList = 3,
    RequestToUpdate = 4,
    RequestToUninstall = 5,
  };

  /** Receives the answers to one asynchronous request, identified by kind and number. */
  class CallbackBase {
   public:
    CallbackBase(DelegateId id, bool once);
    CallbackBase(const CallbackBase &) = delete;
    CallbackBase &operator=(const CallbackBase &) = delete;
    virtual ~CallbackBase() = default;

    /** Decodes an answer and passes it on. May destroy this object and its port. */
    virtual void ReceiveParcel(rpc_port_parcel_h parcel) = 0;

    int GetId() const { return id_; }
    int GetSeq() const { return seq_; }
    /** Whether the delegate is removed when its first answer arrives. */
    bool IsOnce() const { return once_; }
    /** "<id>::<number>". */
    std::string GetTag() const;

    static void WriteDelegate(rpc_port_parcel_h parcel, const CallbackBase &delegate);
    static void ReadDelegate(rpc_port_parcel_h parcel, CallbackBase &delegate);

   private:
    std::int32_t id_;
    std::int32_t seq_;
    bool once_;

    static inline std::atomic<std::int32_t> next_seq_{0};
  };

  /** Common to the delegates of all kinds: decodes an answer and passes it to OnReceived. */
  template <DelegateId kId, typename Payload>
  class Delegate : public CallbackBase {
   public:
    explicit Delegate(bool once) : CallbackBase(kId, once) {}
    void ReceiveParcel(rpc_port_parcel_h parcel) override {
      const int result_code = ReadCode(parcel);
      Payload value;
      Read(parcel, value);
      OnReceived(result_code, std::move(value));
    }
    virtual void OnReceived(int /*result_code*/, Payload /*value*/) {}
  };

  class GetUsableModelListCallback : public Delegate<DelegateId::GetUsableModelList, AIModelList> {
   public:
    using Delegate::Delegate;
  };

  class GetUsableModelListWithDescCallback
      : public Delegate<DelegateId::GetUsableModelListWithDesc, AIModelList> {
   public:
    using Delegate::Delegate;
  };

  class GetModelVersionListCallback
      : public Delegate<DelegateId::GetModelVersionList, AIModelList> {
   public:
    using Delegate::Delegate;
  };

  class RequestToUpdateCallback
      : public Delegate<DelegateId::RequestToUpdate, AIUpdateProgressInfo> {
   public:
    using Delegate::Delegate;
  };

  class RequestToUninstallCallback
      : public Delegate<DelegateId::RequestToUninstall, AIUpdateProgressInfo> {
   public:
    using Delegate::Delegate;
  };

  /** Creates an unconnected port. Throws InvalidIOException. */
  SvcMgrAppPort(IEventListener *listener, std::string target_app_id);
  SvcMgrAppPort(const SvcMgrAppPort &) = delete;
  SvcMgrAppPort &operator=(const SvcMgrAppPort &) = delete;
  virtual ~SvcMgrAppPort();

  /**
   * Starts the connection; with sync, its outcome has been reported on return.
   *
   * Throws InvalidIDException, PermissionDeniedException or
   * InvalidIOException; other failures of the platform are only logged.
   */
  void Connect(bool sync);

  // Synchronous methods: they block until the service manager answers. Each throws
  // NotConnectedSocketException, InvalidIOException or InvalidProtocolException.
  int get_agent_api_level();
  std::string get_license();
  int request_update();
  int request_update_with_list(const AgentNameList &agents);

  // Asynchronous methods: they own the delegate from then on; it receives the answers.
  // Each throws NotConnectedSocketException or InvalidIOException.
  void GetUsableModelList(std::unique_ptr<GetUsableModelListCallback> delegate,
                          const std::string &app_id, const std::string &app_version);
  void GetUsableModelListWithDesc(std::unique_ptr<GetUsableModelListWithDescCallback> delegate,
                                  const std::string &app_id, const std::string &app_version);
  void GetModelVersionList(std::unique_ptr<GetModelVersionListCallback> delegate,
                           const AIModelInfo &model, const std::string &app_id,
                           const std::string &app_version);
  void RequestToUpdate(std::unique_ptr<RequestToUpdateCallback> delegate,
                       const AIModelList &models);
  void RequestToUninstall(std::unique_ptr<RequestToUninstallCallback> delegate,
                          const AIModelList &models);

  /** Removes the first delegate that has this tag. */
  void RemoveDelegateByTag(const std::string &tag);

 private:
  enum class MethodId : std::int32_t {
    Result = 0,
    Callback = 1,
    get_agent_api_level = 2,
    get_license = 3,
    request_update = 4,
    GetUsableModelList = 5,
    GetUsableModelListWithDesc = 6,
    GetModelVersionList = 7,
    RequestToUpdate = 8,
    RequestToUninstall = 9,
    request_update_with_list = 10,
  };

  /** The number and kind of a delegate, as they were at its registration. */
  using Identity = std::pair<int, int>;
  /**
   * Sorted, so that an answer's delegate is found by binary search; equal identities are in the
   * order of registration. Numbers rise, so a new delegate nearly always goes to the end.
   */
  using Delegates = std::vector<std::pair<Identity, std::unique_ptr<CallbackBase>>>;

  static void OnConnectedCB(const char *endpoint, const char *port_name, rpc_port_h port,
                            void *user_data);
  static void OnDisconnectedCB(const char *endpoint, const char *port_name, void *user_data);
  static void OnRejectedCB(const char *endpoint, const char *port_name, void *user_data);
  static void OnReceivedCB(const char *endpoint, const char *port_name, void *user_data);

  void Receive();
  void Register(std::unique_ptr<CallbackBase> delegate);
  std::unique_ptr<CallbackBase> Remove(Delegates::iterator entry);
  void DropDelegates();
  void DispatchDelegate(rpc_port_parcel_h parcel);

  svcmgr::ParcelOwner NewRequest(const char *operation, MethodId method) const;
  void Send(const char *operation, svcmgr::ParcelOwner &request) const;
  svcmgr::ParcelOwner WaitForResult() const;
  template <typename Result, typename... Arguments>
  Result Call(const char *operation, MethodId method, Result (*read)(rpc_port_parcel_h),
              const Arguments &...arguments);
  template <typename... Arguments>
  void CallLater(const char *operation, MethodId method, std::unique_ptr<CallbackBase> delegate,
                 const Arguments &...arguments);

  rpc_port_h main_port_;
  rpc_port_h delegate_port_;
  rpc_port_proxy_h proxy_handle_;
  IEventListener *listener_;
  std::recursive_mutex lock_;
  Delegates delegates_;
  std::string target_app_id_;
};

}  // namespace rpc_port::SvcMgrAppProxy::proxy

#endif  // KORVANE_SVCMGR_SVC_MGR_APP_PROXY_H_
