/** The service manager's persistent state on the device. */
#ifndef KORVANE_EMULATOR_SERVICE_STATE_H_
#define KORVANE_EMULATOR_SERVICE_STATE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "device/device.h"
#include "protocol.h"

namespace korvane::emulator {

/** A model that agents offer. */
struct OfferedModel {
  std::string agent;
  std::string id;
  std::string title;
  std::string description;
  std::string installed;                  ///< version; empty when the model is not installed
  std::vector<std::string> versions;      ///< oldest first
  std::vector<std::string> applications;  ///< that may use it; empty: all

  bool has_version(const std::string &version) const;
};

/**
 * The service manager's state, stored in service/state.json of the device and, for the versions of
 * agents, in their package files. A change is in its file when the operation returns; if writing
 * fails, the change is not made. A system crash may lose recent changes. Errors are
 * std::runtime_error.
 */
class ServiceState {
 public:
  /** Requested versions of models by ID; an empty version uninstalls. */
  using InstalledVersions = std::unordered_map<std::string, std::string>;

  explicit ServiceState(host::Device device);

  /** Reads the file again. */
  void load();

  std::int32_t agent_api_level() const { return contents_.agent_api_level; }
  const std::string &license() const { return contents_.license; }
  void set_license(const std::string &text);
  /** Reverts set_license(). */
  void reset_license();

  /** The agents among the names; all agents when no names are given. */
  std::vector<std::string> agents(const std::vector<std::string> *names = nullptr) const;
  /** Updates an agent's package to the available version. */
  void update_agent(const std::string &agent);

  /** The installed models of an agent, or those that an application may use. */
  ModelList usable_models(const std::string &id, bool with_description) const;
  /** Every version of a model; null when there is no such model. */
  const OfferedModel *find_model(const std::string &id) const;
  /** Changes all of these models or none. */
  void set_installed(const InstalledVersions &versions);

 private:
  struct Contents {
    std::int32_t agent_api_level = 0;
    std::string license;
    std::map<std::string, std::string> available;  ///< agent: newest version of its package
    std::vector<OfferedModel> models;
  };

  /** Writes a new state to the file, then makes it current. */
  void replace(Contents contents);

  host::Device device_;
  Contents contents_;
  std::optional<std::string> first_license_;             ///< before the first set_license()
  std::unordered_map<std::string, std::size_t> places_;  ///< index of each model, by ID
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_SERVICE_STATE_H_
