#include "service_state.h"

#include <algorithm>
#include <stdexcept>

#include "json_file.h"

namespace korvane::emulator {

namespace {

std::filesystem::path state_file(const host::Device &device) {
  return device.directory() / "service" / "state.json";
}

Json encode(const OfferedModel &model) {
  return {{"agent", model.agent},
          {"id", model.id},
          {"title", model.title},
          {"description", model.description},
          {"installed", model.installed},
          {"versions", model.versions},
          {"applications", model.applications}};
}

OfferedModel decode(const Json &json) {
  OfferedModel model;
  json.at("agent").get_to(model.agent);
  json.at("id").get_to(model.id);
  json.at("title").get_to(model.title);
  json.at("description").get_to(model.description);
  json.at("installed").get_to(model.installed);
  json.at("versions").get_to(model.versions);
  json.at("applications").get_to(model.applications);
  if (model.versions.empty()) throw std::runtime_error("model " + model.id + " has no version");
  return model;
}

bool contains(const std::vector<std::string> &texts, const std::string &text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace

bool OfferedModel::has_version(const std::string &version) const {
  return contains(versions, version);
}

ServiceState::ServiceState(host::Device device) : device_(std::move(device)) {
  load();
}

void ServiceState::load() {
  const std::filesystem::path file = state_file(device_);
  const Json document = read_json(file);
  try {
    document.at("agent_api_level").get_to(agent_api_level_);
    document.at("license").get_to(license_);
    document.at("available").get_to(available_);
    models_.clear();
    for (const Json &model : document.at("models")) models_.push_back(decode(model));
  } catch (const std::exception &error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
}

void ServiceState::save() const {
  Json models = Json::array();
  for (const OfferedModel &model : models_) models.push_back(encode(model));
  write_json(state_file(device_), {{"agent_api_level", agent_api_level_},
                                   {"license", license_},
                                   {"available", available_},
                                   {"models", std::move(models)}});
}

void ServiceState::set_license(const std::string &text) {
  license_ = text;
  save();
}

std::vector<std::string> ServiceState::agents(const std::vector<std::string> *names) const {
  std::vector<std::string> found;
  for (const auto &[agent, version] : available_) {
    if (names == nullptr || contains(*names, agent)) found.push_back(agent);
  }
  return found;
}

void ServiceState::update_agent(const std::string &agent) {
  const std::filesystem::path file = device_.packages_directory() / (agent + ".json");
  Json package = read_json(file);
  package["version"] = available_.at(agent);
  write_json(file, package);
}

ModelList ServiceState::usable_models(const std::string &id, bool with_description) const {
  const bool is_agent = available_.count(id) != 0;
  ModelList list;
  for (const OfferedModel &model : models_) {
    const bool usable = is_agent ? model.agent == id
                                 : model.applications.empty() || contains(model.applications, id);
    if (!usable || model.installed.empty()) continue;
    list.models.push_back(
        {model.id, model.installed, model.title, with_description ? model.description : ""});
  }
  list.count = static_cast<std::int32_t>(list.models.size());
  return list;
}

const OfferedModel *ServiceState::find_model(const std::string &id) const {
  const auto found = std::find_if(models_.begin(), models_.end(),
                                  [&id](const OfferedModel &model) { return model.id == id; });
  return found == models_.end() ? nullptr : &*found;
}

void ServiceState::install_model(const std::string &id, const std::string &version) {
  const OfferedModel *model = find_model(id);
  if (model == nullptr) return;
  set_installed(id, version.empty() ? model->versions.back() : version);
}

void ServiceState::uninstall_model(const std::string &id) {
  set_installed(id, "");
}

void ServiceState::set_installed(const std::string &id, const std::string &version) {
  for (OfferedModel &model : models_) {
    if (model.id == id) model.installed = version;
  }
  save();
}

}  // namespace korvane::emulator
