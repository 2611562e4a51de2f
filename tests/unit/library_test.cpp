#include "library_test.h"

#include <utility>

#include "SvcMgrAppProxyHandler.h"
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

void LibraryTest::expect_logged(const Texts &lines) {
  EXPECT_THAT(platform.log, ::testing::IsSupersetOf(lines));
}

std::filesystem::path LibraryTest::directory() {
  std::string name = std::filesystem::temp_directory_path() / "korvaneXXXXXX";
  if (directory_.empty()) directory_ = mkdtemp(name.data());
  return directory_;
}

void LibraryTest::connect() {
  ASSERT_EQ(SVCMGR_ERROR_NONE, start_connecting());
  platform.report_connected();
  platform.forget();
  connection_states.clear();
}

bool LibraryTest::is_connected() {
  return SvcMgrAppProxyHandler::GetInstance().IsConnected();
}

void LibraryTest::announce_update() {
  const AllocationScope library(false);
  platform.emit(".agent_status", {{"Update", "announced"}});
}

void LibraryTest::announce_launch() {
  const AllocationScope library(false);
  platform.emit(".agent_status", {{"Launch", "announced"}});
}

void LibraryTest::start_update() {
  platform.emit(".update_status", {{"Start", Texts{"agent.one"}}});
}

void LibraryTest::complete_update() {
  platform.emit(".update_status", {{"Complete", "done"}});
}

void LibraryTest::answer_delegate(int kind, const Parcel &payload) {
  const AllocationScope library(false);
  Parcel event = {1, kind, -1, true};
  for (const Parcel &request : platform.sent) {
    if (request.size() > 2 && request[1] == ParcelValue(kind)) event[2] = request[2];
  }
  event.insert(event.end(), payload.begin(), payload.end());
  platform.deliver(event);
}

void LibraryTest::react() {
  const auto taken = std::exchange(reaction, nullptr);
  if (taken) taken();
}

void LibraryTest::on_connection(int result, korvane_svcmgr_connection_state_e state, void *test) {
  const AllocationScope library(false);
  const bool rejected = state == SVCMGR_CONNECTION_REJECTED;
  EXPECT_EQ(rejected ? SVCMGR_ERROR_PERMISSION_DENIED : SVCMGR_ERROR_NONE, result);
  static_cast<LibraryTest *>(test)->connection_states.push_back(state);
  static_cast<LibraryTest *>(test)->react();
}

void LibraryTest::on_update_status(korvane_svcmgr_update_status_e status, void *test) {
  const AllocationScope library(false);
  static_cast<LibraryTest *>(test)->update_statuses.push_back(status);
  static_cast<LibraryTest *>(test)->react();
}

void LibraryTest::on_model_status(int result, korvane_svcmgr_ai_state_e state, void *test) {
  const AllocationScope library(false);
  EXPECT_EQ(SVCMGR_ERROR_NONE, result);
  static_cast<LibraryTest *>(test)->model_states.push_back(state);
}

void LibraryTest::on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test) {
  const AllocationScope library(false);
  static_cast<LibraryTest *>(test)->answers.push_back({result, describe(ModelList(list))});
  static_cast<LibraryTest *>(test)->react();
}

void LibraryTest::on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test) {
  const AllocationScope library(false);
  static_cast<LibraryTest *>(test)->answers.push_back({result, describe(Progress(progress))});
  static_cast<LibraryTest *>(test)->react();
}

Handles::Handles() {
  agents.add("agent.one");
  info.set_id("m1");
  info.set_version("1.0");
  info.set_title("Title");
  info.set_description("Description");
  models.add(info);
}

Arguments::~Arguments() {
  if (text_out != unset<char *>()) std::free(text_out);
  if (agents_out != unset<korvane_svcmgr_agent_list_h>())
    korvane_svcmgr_agent_list_destroy(agents_out);
  if (info_out != unset<korvane_svcmgr_ai_model_info_h>())
    korvane_svcmgr_ai_model_info_destroy(info_out);
  if (models_out != unset<korvane_svcmgr_ai_model_list_h>())
    korvane_svcmgr_ai_model_list_destroy(models_out);
  if (progress_out != unset<korvane_svcmgr_ai_progress_h>())
    korvane_svcmgr_ai_progress_destroy(progress_out);
}

bool Arguments::outputs_untouched() const {
  return number_out == kNoNumber && truth_out && text_out == unset<char *>() &&
         agents_out == unset<korvane_svcmgr_agent_list_h>() &&
         info_out == unset<korvane_svcmgr_ai_model_info_h>() &&
         models_out == unset<korvane_svcmgr_ai_model_list_h>() &&
         progress_out == unset<korvane_svcmgr_ai_progress_h>();
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

// What is logged about a missing pointer.
constexpr const char *kIsNull = "parameter is NULL!!";
constexpr const char *kInvalid = "Invalid parameter";
constexpr const char *kInvalidLoud = "Invalid parameter!!";

constexpr unsigned kTakesBoth = kTakesHandle | kTakesOther;

using Call = int (*)(Arguments &);

/** A function that logs a message of its own first. */
ApiCall with_entry(const std::string &name, const std::string &message, const char *null_message,
                   unsigned traits, Call call, const std::string &level = "D ") {
  const std::string full_name = "korvane_svcmgr_" + name;
  return {full_name, level + full_name + ": " + message, null_message, traits, call};
}

/** A function that logs its name first, at debug level. */
ApiCall debug(const std::string &name, const char *null_message, unsigned traits, Call call) {
  return with_entry(name, "korvane_svcmgr_" + name, null_message, traits, call);
}

/** A function that logs its name first, at info level. */
ApiCall info(const std::string &name, const char *null_message, unsigned traits, Call call) {
  return with_entry(name, "korvane_svcmgr_" + name, null_message, traits, call, "I ");
}

/** A function of the model service. */
ApiCall request(const std::string &name, const char *null_message, unsigned traits, Call call) {
  return with_entry(name, "__ korvane_svcmgr_" + name + " __", null_message, traits, call, "I ");
}

}  // namespace

const std::vector<ApiCall> kApiCalls = {
    debug("connect", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_connect(a.callback(), nullptr); }),
    debug("disconnect", kIsNull, 0, [](auto &) { return korvane_svcmgr_disconnect(); }),
    debug("get_client_api_level", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_get_client_api_level(a.out(a.number_out)); }),
    debug("get_agent_api_level", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_get_agent_api_level(a.out(a.number_out)); }),
    debug("get_license_fulltext", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_get_license_fulltext(a.out(a.text_out)); }),
    debug("request_update", kIsNull, 0, [](auto &) { return korvane_svcmgr_request_update(); }),
    debug("request_update_with_list", kIsNull, kTakesHandle | kNeedsVersion23,
          [](auto &a) { return korvane_svcmgr_request_update_with_list(a.agents(), nullptr); }),
    debug("set_update_status_cb", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_set_update_status_cb(a.callback(), nullptr); }),
    debug("unset_update_status_cb", kIsNull, 0,
          [](auto &) { return korvane_svcmgr_unset_update_status_cb(); }),
    debug("is_being_updated", kIsNull, kTakesOther,
          [](auto &a) { return korvane_svcmgr_is_being_updated(a.out(a.truth_out)); }),
    info("agent_list_create", kInvalidLoud, kTakesOther,
         [](auto &a) { return korvane_svcmgr_agent_list_create(a.out(a.agents_out)); }),
    info("agent_list_destroy", kInvalidLoud, kTakesHandle,
         [](auto &a) { return korvane_svcmgr_agent_list_destroy(a.agents()); }),
    info("ai_model_info_create", kInvalidLoud, kTakesOther,
         [](auto &a) { return korvane_svcmgr_ai_model_info_create(a.out(a.info_out)); }),
    info("ai_model_info_destroy", kInvalidLoud, kTakesHandle,
         [](auto &a) { return korvane_svcmgr_ai_model_info_destroy(a.info()); }),
    info("ai_model_list_create", kInvalidLoud, kTakesOther,
         [](auto &a) { return korvane_svcmgr_ai_model_list_create(a.out(a.models_out)); }),
    info("ai_model_list_destroy", kInvalidLoud, kTakesHandle,
         [](auto &a) { return korvane_svcmgr_ai_model_list_destroy(a.models()); }),
    debug("agent_list_get_size", kInvalid, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_agent_list_get_size(a.agents(), a.out(a.number_out));
          }),
    debug("agent_list_add", kInvalidLoud, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_agent_list_add(a.agents(), a.text()); }),
    debug("agent_list_get", kInvalidLoud, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_agent_list_get(a.agents(), 0, a.out(a.text_out)); }),
    debug("ai_model_info_set_id", kInvalid, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_ai_model_info_set_id(a.info(), a.text()); }),
    debug("ai_model_info_get_id", kInvalid, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_ai_model_info_get_id(a.info(), a.out(a.text_out)); }),
    debug("ai_model_info_set_version", kInvalid, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_ai_model_info_set_version(a.info(), a.text()); }),
    debug("ai_model_info_get_version", kInvalid, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_model_info_get_version(a.info(), a.out(a.text_out));
          }),
    debug("ai_model_info_set_title", kInvalid, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_ai_model_info_set_title(a.info(), a.text()); }),
    debug("ai_model_info_get_title", kInvalid, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_model_info_get_title(a.info(), a.out(a.text_out));
          }),
    debug("ai_model_info_set_description", kInvalid, kTakesBoth,
          [](auto &a) { return korvane_svcmgr_ai_model_info_set_description(a.info(), a.text()); }),
    debug("ai_model_info_get_description", kInvalid, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_model_info_get_description(a.info(), a.out(a.text_out));
          }),
    debug("ai_model_list_get_size", kInvalid, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_model_list_get_size(a.models(), a.out(a.number_out));
          }),
    debug("ai_model_list_add", kInvalidLoud, kTakesHandle,
          [](auto &a) { return korvane_svcmgr_ai_model_list_add(a.models(), a.info()); }),
    debug(
        "ai_model_list_get", kInvalidLoud, kTakesBoth,
        [](auto &a) { return korvane_svcmgr_ai_model_list_get(a.models(), 0, a.out(a.info_out)); }),
    with_entry("ai_progress_create", "create progress", kInvalidLoud, kTakesOther,
               [](auto &a) { return korvane_svcmgr_ai_progress_create(a.out(a.progress_out)); }),
    with_entry("ai_progress_destroy", "destroy progress", kInvalidLoud, kTakesHandle,
               [](auto &a) { return korvane_svcmgr_ai_progress_destroy(a.progress()); }),
    with_entry("ai_progress_set_state", "set [150]", kInvalidLoud, kTakesHandle,
               [](auto &a) { return korvane_svcmgr_ai_progress_set_state(a.progress(), 150); }),
    debug("ai_progress_get_state", kInvalidLoud, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_progress_get_state(a.progress(), a.out(a.number_out));
          }),
    with_entry("ai_progress_set_index", "set [-1]", kInvalidLoud, kTakesHandle,
               [](auto &a) { return korvane_svcmgr_ai_progress_set_index(a.progress(), -1); }),
    debug("ai_progress_get_index", kInvalidLoud, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_progress_get_index(a.progress(), a.out(a.number_out));
          }),
    with_entry("ai_progress_set_count", "set [2]", kInvalidLoud, kTakesHandle,
               [](auto &a) { return korvane_svcmgr_ai_progress_set_count(a.progress(), 2); }),
    debug("ai_progress_get_count", kInvalidLoud, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_progress_get_count(a.progress(), a.out(a.number_out));
          }),
    with_entry(
        "ai_progress_set_percentage", "set [101]", kInvalidLoud, kTakesHandle,
        [](auto &a) { return korvane_svcmgr_ai_progress_set_percentage(a.progress(), 101); }),
    debug("ai_progress_get_percentage", kInvalidLoud, kTakesBoth,
          [](auto &a) {
            return korvane_svcmgr_ai_progress_get_percentage(a.progress(), a.out(a.number_out));
          }),
    request(
        "ai_request_usable_model_list", kIsNull, kTakesOther | kNeedsVersion17,
        [](auto &a) { return korvane_svcmgr_ai_request_usable_model_list(a.callback(), nullptr); }),
    request("ai_request_usable_model_list_with_description", kIsNull, kTakesOther | kNeedsVersion17,
            [](auto &a) {
              return korvane_svcmgr_ai_request_usable_model_list_with_description(a.callback(),
                                                                                  nullptr);
            }),
    request("ai_request_usable_model_list_with_category", kIsNull, kTakesOther | kNeedsVersion23,
            [](auto &a) {
              return korvane_svcmgr_ai_request_usable_model_list_with_category(a.callback(),
                                                                               "vision", nullptr);
            }),
    request("ai_request_model_version_list", kIsNull, kTakesBoth | kNeedsVersion17,
            [](auto &a) {
              return korvane_svcmgr_ai_request_model_version_list(a.info(), a.callback(), nullptr);
            }),
    request("ai_request_to_update", kIsNull, kTakesBoth | kNeedsVersion17,
            [](auto &a) {
              return korvane_svcmgr_ai_request_to_update(a.models(), a.callback(), nullptr);
            }),
    request("ai_request_to_uninstall", kIsNull, kTakesBoth | kNeedsVersion17,
            [](auto &a) {
              return korvane_svcmgr_ai_request_to_uninstall(a.models(), a.callback(), nullptr);
            }),
    request("ai_register_status_cb", kIsNull, kTakesOther,
            [](auto &a) { return korvane_svcmgr_ai_register_status_cb(a.callback(), nullptr); }),
    request("ai_deregister_status_cb", kIsNull, 0,
            [](auto &) { return korvane_svcmgr_ai_deregister_status_cb(); })};
