#include "library_test.h"

#include "UpdateObserver.h"

LibraryTest::~LibraryTest() {
  if (!directory_.empty()) std::filesystem::remove_all(directory_);
}

void LibraryTest::TearDown() {
  platform.repair();
  platform.on_send = nullptr;
  SvcMgrAppProxyHandler::GetInstance().Disconnect();
  korvane_svcmgr_unset_update_status_cb();
  korvane_svcmgr_ai_deregister_status_cb();
  UpdateObserver().FinishUpdate();
  EXPECT_TRUE(platform.proxies.empty());
}

std::filesystem::path LibraryTest::directory() {
  std::string name = std::filesystem::temp_directory_path() / "korvaneXXXXXX";
  if (directory_.empty()) directory_ = mkdtemp(name.data());
  return directory_;
}

void LibraryTest::answer_delegate(int kind, const Parcel &payload) {
  Parcel event = {1, kind, -1, true};
  for (const Parcel &request : platform.sent) {
    if (request.size() > 2 && request[1] == ParcelValue(kind)) event[2] = request[2];
  }
  event.insert(event.end(), payload.begin(), payload.end());
  platform.deliver(event);
}

std::string describe(const ModelInfo &info) {
  std::string texts;
  for (const auto &text : {info.id(), info.version(), info.title(), info.description()}) {
    texts += (texts.empty() ? "" : "|") + text.value_or("unset");
  }
  return texts;
}

std::string describe(const ModelList &list) {
  if (!list) return "none";
  std::string entries;
  for (const ModelInfo &info : list) entries += "[" + describe(info) + "]";
  return entries;
}

std::string describe(const Progress &progress) {
  if (!progress) return "none";
  return "state " + std::to_string(progress.state()) + ", model " +
         std::to_string(progress.index()) + " of " + std::to_string(progress.count()) + ", " +
         std::to_string(progress.percentage()) + " %";
}

namespace {

/** How functions log their call and a null pointer. */
struct Logging {
  const char *level, *null_message;
  const char *before = "", *after = "";  ///< the name of the function
};
const Logging kGeneral = {"D ", "parameter is NULL!!"};
const Logging kLifetime = {"I ", "Invalid parameter!!"};
const Logging kField = {"D ", "Invalid parameter"};
const Logging kElement = {"D ", "Invalid parameter!!"};
const Logging kRequest = {"I ", "parameter is NULL!!", "__ ", " __"};

/** A function that logs a message of its own first. */
ApiCall api(const Logging &logging, const std::string &short_name, const std::string &message,
            const ApiFunction &function, unsigned needs = 0) {
  const std::string name = "korvane_svcmgr_" + short_name;
  return {function, name, logging.level + name + ": " + message,
          "E " + name + ": " + logging.null_message, needs};
}

/** A function that logs its name first. */
ApiCall api(const Logging &logging, const std::string &short_name, const ApiFunction &function,
            unsigned needs = 0) {
  const std::string message = "korvane_svcmgr_" + short_name;
  return api(logging, short_name, logging.before + message + logging.after, function, needs);
}

}  // namespace

const std::vector<ApiCall> kApiCalls = {
    api(kGeneral, "connect", korvane_svcmgr_connect),
    api(kGeneral, "disconnect", korvane_svcmgr_disconnect),
    api(kGeneral, "get_client_api_level", korvane_svcmgr_get_client_api_level),
    api(kGeneral, "get_agent_api_level", korvane_svcmgr_get_agent_api_level, kConnection),
    api(kGeneral, "get_license_fulltext", korvane_svcmgr_get_license_fulltext, kConnection),
    api(kGeneral, "request_update", korvane_svcmgr_request_update, kConnection),
    api(kGeneral, "request_update_with_list", korvane_svcmgr_request_update_with_list,
        kConnection | kLevel11),
    api(kGeneral, "set_update_status_cb", korvane_svcmgr_set_update_status_cb),
    api(kGeneral, "unset_update_status_cb", korvane_svcmgr_unset_update_status_cb),
    api(kGeneral, "is_being_updated", korvane_svcmgr_is_being_updated, kConnection),
    api(kLifetime, "agent_list_create", korvane_svcmgr_agent_list_create),
    api(kLifetime, "agent_list_destroy", korvane_svcmgr_agent_list_destroy),
    api(kLifetime, "ai_model_info_create", korvane_svcmgr_ai_model_info_create),
    api(kLifetime, "ai_model_info_destroy", korvane_svcmgr_ai_model_info_destroy),
    api(kLifetime, "ai_model_list_create", korvane_svcmgr_ai_model_list_create),
    api(kLifetime, "ai_model_list_destroy", korvane_svcmgr_ai_model_list_destroy),
    api(kField, "agent_list_get_size", korvane_svcmgr_agent_list_get_size),
    api(kField, "ai_model_list_get_size", korvane_svcmgr_ai_model_list_get_size),
    api(kField, "ai_model_info_set_id", korvane_svcmgr_ai_model_info_set_id),
    api(kField, "ai_model_info_get_id", korvane_svcmgr_ai_model_info_get_id),
    api(kField, "ai_model_info_set_version", korvane_svcmgr_ai_model_info_set_version),
    api(kField, "ai_model_info_get_version", korvane_svcmgr_ai_model_info_get_version),
    api(kField, "ai_model_info_set_title", korvane_svcmgr_ai_model_info_set_title),
    api(kField, "ai_model_info_get_title", korvane_svcmgr_ai_model_info_get_title),
    api(kField, "ai_model_info_set_description", korvane_svcmgr_ai_model_info_set_description),
    api(kField, "ai_model_info_get_description", korvane_svcmgr_ai_model_info_get_description),
    api(kElement, "agent_list_add", korvane_svcmgr_agent_list_add),
    api(kElement, "agent_list_get", korvane_svcmgr_agent_list_get),
    api(kElement, "ai_model_list_add", korvane_svcmgr_ai_model_list_add),
    api(kElement, "ai_model_list_get", korvane_svcmgr_ai_model_list_get),
    api(kElement, "ai_progress_get_state", korvane_svcmgr_ai_progress_get_state),
    api(kElement, "ai_progress_get_index", korvane_svcmgr_ai_progress_get_index),
    api(kElement, "ai_progress_get_count", korvane_svcmgr_ai_progress_get_count),
    api(kElement, "ai_progress_get_percentage", korvane_svcmgr_ai_progress_get_percentage),
    api(kElement, "ai_progress_create", "create progress", korvane_svcmgr_ai_progress_create),
    api(kElement, "ai_progress_destroy", "destroy progress", korvane_svcmgr_ai_progress_destroy),
    api(kElement, "ai_progress_set_state", "set [0]", korvane_svcmgr_ai_progress_set_state),
    api(kElement, "ai_progress_set_index", "set [0]", korvane_svcmgr_ai_progress_set_index),
    api(kElement, "ai_progress_set_count", "set [0]", korvane_svcmgr_ai_progress_set_count),
    api(kElement, "ai_progress_set_percentage", "set [0]",
        korvane_svcmgr_ai_progress_set_percentage),
    api(kRequest, "ai_request_usable_model_list", korvane_svcmgr_ai_request_usable_model_list,
        kLevel8),
    api(kRequest, "ai_request_usable_model_list_with_description",
        korvane_svcmgr_ai_request_usable_model_list_with_description, kLevel8),
    api(
        kRequest, "ai_request_usable_model_list_with_category",
        +[](korvane_svcmgr_ai_model_list_cb callback) {
          return korvane_svcmgr_ai_request_usable_model_list_with_category(
              callback, Arguments::kText, nullptr);
        },
        kLevel11),
    api(kRequest, "ai_request_model_version_list", korvane_svcmgr_ai_request_model_version_list,
        kLevel8),
    api(kRequest, "ai_request_to_update", korvane_svcmgr_ai_request_to_update, kLevel8),
    api(kRequest, "ai_request_to_uninstall", korvane_svcmgr_ai_request_to_uninstall, kLevel8),
    api(kRequest, "ai_register_status_cb", korvane_svcmgr_ai_register_status_cb),
    api(kRequest, "ai_deregister_status_cb", korvane_svcmgr_ai_deregister_status_cb)};
