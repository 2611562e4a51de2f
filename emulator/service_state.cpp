#include "service_state.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

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

std::int32_t decode_number(const Json &json) {
  using Limits = std::numeric_limits<std::int32_t>;
  const auto number = json.is_number_integer() ? json.get<std::int64_t>() : Limits::max() + 1LL;
  if (number < Limits::min() || number > Limits::max()) {
    throw std::runtime_error(to_text(json) + " is no 32-bit number");
  }
  return static_cast<std::int32_t>(number);
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
  Contents contents;
  try {
    contents.agent_api_level = decode_number(document.at("agent_api_level"));
    document.at("license").get_to(contents.license);
    document.at("available").get_to(contents.available);
    for (const Json &model : document.at("models")) contents.models.push_back(decode(model));
    for (const auto &[agent, version] : contents.available) {
      if (!host::is_plain_name(agent)) throw std::runtime_error("\"" + agent + "\" is no agent");
    }
  } catch (const std::exception &error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
  contents_ = std::move(contents);
  places_.clear();
  for (std::size_t place = 0; place < contents_.models.size(); ++place) {
    places_.emplace(contents_.models[place].id, place);
  }
}

void ServiceState::replace(Contents contents) {
  Json models = Json::array();
  for (const OfferedModel &model : contents.models) models.push_back(encode(model));
  write_json(state_file(device_), {{"agent_api_level", contents.agent_api_level},
                                   {"license", contents.license},
                                   {"available", contents.available},
                                   {"models", std::move(models)}});
  contents_ = std::move(contents);
}

void ServiceState::set_license(const std::string &text) {
  Contents contents = contents_;
  const std::string before = std::exchange(contents.license, text);
  replace(std::move(contents));
  if (!first_license_) first_license_ = before;
}

void ServiceState::reset_license() {
  if (!first_license_) return;
  set_license(*first_license_);
  first_license_.reset();
}

std::vector<std::string> ServiceState::agents(const std::vector<std::string> *names) const {
  std::vector<std::string> found;
  for (const auto &[agent, version] : contents_.available) {
    if (names == nullptr || contains(*names, agent)) found.push_back(agent);
  }
  return found;
}

void ServiceState::update_agent(const std::string &agent) {
  const std::filesystem::path file = device_.packages_directory() / (agent + ".json");
  Json package = read_json(file);
  package["version"] = contents_.available.at(agent);
  write_json(file, package);
}

ModelList ServiceState::usable_models(const std::string &id, bool with_description) const {
  const bool is_agent = contents_.available.count(id) != 0;
  ModelList list;
  for (const OfferedModel &model : contents_.models) {
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
  const auto place = places_.find(id);
  return place == places_.end() ? nullptr : &contents_.models[place->second];
}

void ServiceState::set_installed(const InstalledVersions &versions) {
  Contents contents = contents_;
  for (OfferedModel &model : contents.models) {
    const auto version = versions.find(model.id);
    if (version != versions.end()) model.installed = version->second;
  }
  replace(std::move(contents));
}

}  // namespace korvane::emulator
