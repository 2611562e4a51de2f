#include "protocol.h"

#include <algorithm>

namespace korvane::emulator {

namespace {

bool read(Parcel &parcel, std::int32_t &value) {
  return parcel.read_int32(value);
}

bool read(Parcel &parcel, std::string &text) {
  return parcel.read_string(text);
}

bool read(Parcel &parcel, DelegateBlock &block) {
  return parcel.read_int32(block.id) && parcel.read_int32(block.sequence) &&
         parcel.read_bool(block.once);
}

bool read(Parcel &parcel, Model &model) {
  return parcel.read_string(model.id) && parcel.read_string(model.version) &&
         parcel.read_string(model.title) && parcel.read_string(model.description);
}

bool read(Parcel &parcel, Progress &progress) {
  return parcel.read_int32(progress.state) && parcel.read_int32(progress.index) &&
         parcel.read_int32(progress.count) && parcel.read_int32(progress.percentage);
}

/** Allocates as elements are read, so that a wrong count cannot exhaust memory. */
template <typename Element>
bool read_list(Parcel &parcel, std::vector<Element> &elements, std::int32_t &count) {
  std::int32_t left = 0;
  if (!parcel.read_array_count(left)) return false;
  for (; left > 0; --left) {
    Element element;
    if (!read(parcel, element)) return false;
    elements.push_back(std::move(element));
  }
  return parcel.read_int32(count);
}

bool read(Parcel &parcel, ModelList &list) {
  return read_list(parcel, list.models, list.count);
}

bool read(Parcel &parcel, NameList &list) {
  return read_list(parcel, list.names, list.count);
}

template <typename Type>
Field field(const char *name) {
  return {name, [](Parcel &parcel) -> std::optional<Value> {
            Type value{};
            if (!read(parcel, value)) return std::nullopt;
            return Value(std::move(value));
          }};
}

std::vector<MethodInfo> make_methods() {
  const Field delegate = delegate_field();
  const Field app_id = field<std::string>("app_id");
  const Field app_version = field<std::string>("app_version");
  const Field models = field<ModelList>("models");
  const Field progress = field<Progress>("progress");
  const Field code = field<std::int32_t>("code");
  return {
      {Method::kGetAgentApiLevel, "get_agent_api_level", 0, {}, field<std::int32_t>("level")},
      {Method::kGetLicense, "get_license", 0, {}, field<std::string>("license")},
      {Method::kRequestUpdate, "request_update", 0, {}, code},
      {Method::kGetUsableModelList,
       "GetUsableModelList",
       1,
       {delegate, app_id, app_version},
       models},
      {Method::kGetUsableModelListWithDesc,
       "GetUsableModelListWithDesc",
       2,
       {delegate, app_id, app_version},
       models},
      {Method::kGetModelVersionList,
       "GetModelVersionList",
       3,
       {delegate, field<Model>("model"), app_id, app_version},
       models},
      {Method::kRequestToUpdate, "RequestToUpdate", 4, {delegate, models}, progress},
      {Method::kRequestToUninstall, "RequestToUninstall", 5, {delegate, models}, progress},
      {Method::kRequestUpdateWithList,
       "request_update_with_list",
       0,
       {field<NameList>("agents")},
       code},
  };
}

template <typename Matches>
const MethodInfo *find_if(Matches matches) {
  const auto found = std::find_if(methods().begin(), methods().end(), matches);
  return found == methods().end() ? nullptr : &*found;
}

}  // namespace

void write(Parcel &parcel, const DelegateBlock &block) {
  parcel.write_int32(block.id);
  parcel.write_int32(block.sequence);
  parcel.write_bool(block.once);
}

void write(Parcel &parcel, const ModelList &list) {
  parcel.write_array_count(static_cast<std::int32_t>(list.models.size()));
  for (const Model &model : list.models) {
    for (const std::string *text : {&model.id, &model.version, &model.title, &model.description}) {
      parcel.write_string(*text);
    }
  }
  parcel.write_int32(list.count);
}

void write(Parcel &parcel, const Progress &progress) {
  for (const std::int32_t value :
       {progress.state, progress.index, progress.count, progress.percentage}) {
    parcel.write_int32(value);
  }
}

Field delegate_field() {
  return field<DelegateBlock>("delegate");
}

const std::vector<MethodInfo> &methods() {
  static const std::vector<MethodInfo> table = make_methods();
  return table;
}

const MethodInfo *find_method(std::int32_t id) {
  return find_if([id](const MethodInfo &info) { return info.method == static_cast<Method>(id); });
}

const MethodInfo *find_method(const std::string &name) {
  return find_if([&name](const MethodInfo &info) { return info.name == name; });
}

const MethodInfo *find_delegate(std::int32_t delegate_id) {
  if (delegate_id == 0) return nullptr;
  return find_if([=](const MethodInfo &info) { return info.delegate_id == delegate_id; });
}

const MethodInfo &info_of(Method method) {
  return *find_method(static_cast<std::int32_t>(method));
}

std::optional<Request> read_request(Parcel parcel) {
  std::int32_t id = 0;
  if (!parcel.read_int32(id)) return std::nullopt;
  Request request = {find_method(id), {}};
  if (request.info == nullptr) return std::nullopt;
  for (const Field &argument : request.info->arguments) {
    std::optional<Value> value = argument.read(parcel);
    if (!value) return std::nullopt;
    request.arguments.push_back(std::move(*value));
  }
  return request;
}

}  // namespace korvane::emulator
