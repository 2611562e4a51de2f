/** The protocol between the service manager and its clients: methods, structures, numbers. */
#ifndef KORVANE_EMULATOR_PROTOCOL_H_
#define KORVANE_EMULATOR_PROTOCOL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "ports/parcel.h"

namespace korvane::emulator {

using host::Parcel;

constexpr char kPortName[] = "SvcMgrAppPort";

/** The first value of a parcel from the service. */
constexpr std::int32_t kResultCommand = 0;
constexpr std::int32_t kCallbackCommand = 1;

/** Error answers to update requests. */
constexpr std::int32_t kUpdateInProgress = static_cast<std::int32_t>(0xBFFFFFF9);

/** Result numbers of delegate events. */
constexpr std::int32_t kDone = 0;
constexpr std::int32_t kUnknownModel = 4;
constexpr bool is_success(std::int32_t number) {
  return number == 0 || number == 2 || number == 10;
}

/** States of a progress report. */
constexpr std::int32_t kStateStarted = 17;
constexpr std::int32_t kStateCompleted = 20;
constexpr std::int32_t kStateFailed = 24;

/** Identifies the request that an asynchronous answer belongs to. */
struct DelegateBlock {
  std::int32_t id = 0;
  std::int32_t sequence = 0;
  bool once = false;
};

struct Model {
  std::string id;
  std::string version;
  std::string title;
  std::string description;
};

struct ModelList {
  std::vector<Model> models;
  std::int32_t count = 0;
};

struct NameList {
  std::vector<std::string> names;
  std::int32_t count = 0;
};

struct Progress {
  std::int32_t state = 0;
  std::int32_t index = 0;
  std::int32_t count = 0;
  std::int32_t percentage = 0;
};

/** Any value of a parcel. */
using Value =
    std::variant<std::int32_t, std::string, DelegateBlock, Model, ModelList, NameList, Progress>;

void write(Parcel &parcel, const DelegateBlock &block);
void write(Parcel &parcel, const ModelList &list);
void write(Parcel &parcel, const Progress &progress);

/** One field of a parcel. */
struct Field {
  const char *name;
  /** Empty when the parcel has no such value at its read position. */
  std::optional<Value> (*read)(Parcel &parcel);
};

enum class Method : std::int32_t {
  kGetAgentApiLevel = 2,
  kGetLicense,
  kRequestUpdate,
  kGetUsableModelList,
  kGetUsableModelListWithDesc,
  kGetModelVersionList,
  kRequestToUpdate,
  kRequestToUninstall,
  kRequestUpdateWithList,
};

struct MethodInfo {
  Method method;
  const char *name;
  std::int32_t delegate_id;      ///< 0: a synchronous method
  std::vector<Field> arguments;  ///< after the method id
  Field answer;  ///< after a result command, or after a delegate event's result code

  bool is_asynchronous() const { return delegate_id != 0; }
};

const std::vector<MethodInfo> &methods();
/** Null when there is no such method. */
const MethodInfo *find_method(std::int32_t id);
const MethodInfo *find_method(const std::string &name);
const MethodInfo *find_delegate(std::int32_t delegate_id);
const MethodInfo &info_of(Method method);

/** A delegate block as a field; delegate events contain one, too. */
Field delegate_field();

struct Request {
  const MethodInfo *info;
  std::vector<Value> arguments;

  template <typename Type>
  const Type &argument(std::size_t index) const {
    return std::get<Type>(arguments.at(index));
  }
};

/** Empty when the parcel is not a complete request. */
std::optional<Request> read_request(Parcel parcel);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_PROTOCOL_H_
