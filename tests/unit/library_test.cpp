#include "library_test.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"

LibraryTest::~LibraryTest() {
  if (!directory_.empty()) std::filesystem::remove_all(directory_);
}

std::filesystem::path LibraryTest::directory() {
  std::string name = std::filesystem::temp_directory_path() / "korvaneXXXXXX";
  if (directory_.empty()) directory_ = mkdtemp(name.data());
  return directory_;
}

void LibraryTest::hear(void *test, std::string text, std::initializer_list<int> values) {
  const AllocationScope library(false);
  auto *self = static_cast<LibraryTest *>(test);
  for (const int value : values) text += " " + std::to_string(value);
  self->heard.push_back(text);
  const auto react = std::exchange(self->reaction, nullptr);
  if (react) react();
}

void LibraryTest::on_connection(int result, korvane_svcmgr_connection_state_e state, void *test) {
  hear(test, "connection", {result, state});
}

void LibraryTest::on_update_status(korvane_svcmgr_update_status_e status, void *test) {
  hear(test, "update", {status});
}

void LibraryTest::on_model_status(int result, korvane_svcmgr_ai_state_e state, void *test) {
  hear(test, "model", {result, state});
}

void LibraryTest::on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test) {
  const AllocationScope library(false);
  hear(test,
       "models " + std::to_string(result) + " " + (list ? describe(ModelList(list)) : "null"));
}

void LibraryTest::on_progress(int result, korvane_svcmgr_ai_progress_h handle, void *test) {
  const AllocationScope library(false);
  const Progress progress(handle);
  if (!progress) return hear(test, "progress null", {result});
  hear(test, "progress",
       {result, progress.state(), progress.index(), progress.count(), progress.percentage()});
}

void LibraryTest::connect() {
  ASSERT_EQ(0, start_connecting());
  platform.report_connected();
  platform.forget();
  heard.clear();
}

void LibraryTest::answer(int kind, const Parcel &payload) {
  const AllocationScope library(false);
  Parcel event = {1, kind, -1, true};
  for (const Parcel &request : platform.sent) {
    if (request.size() > 2 && request[1] == ParcelValue(kind)) event[2] = request[2];
  }
  event.insert(event.end(), payload.begin(), payload.end());
  platform.deliver(event);
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

Handles::Handles() {
  agents.add("agent.one");
  add_model({"m1", "1.0", "Title", "Description"});
  info = models.at(0);
}

void Handles::add_model(const std::vector<const char *> &texts) {
  ModelInfo model;
  if (texts[0] != nullptr) model.set_id(texts[0]);
  if (texts[1] != nullptr) model.set_version(texts[1]);
  if (texts[2] != nullptr) model.set_title(texts[2]);
  if (texts[3] != nullptr) model.set_description(texts[3]);
  models.add(model);
}

Others::~Others() {
  if (!is_unset(text)) std::free(text);
  if (!is_unset(agents)) korvane_svcmgr_agent_list_destroy(agents);
  if (!is_unset(info)) korvane_svcmgr_ai_model_info_destroy(info);
  if (!is_unset(models)) korvane_svcmgr_ai_model_list_destroy(models);
  if (!is_unset(progress)) korvane_svcmgr_ai_progress_destroy(progress);
}

bool Others::untouched() const {
  return number == -77 && !truth && is_unset(text) && is_unset(agents) && is_unset(info) &&
         is_unset(models) && is_unset(progress);
}

std::string describe(const ModelInfo &info) {
  std::string texts;
  for (const auto &text : {info.id(), info.version(), info.title(), info.description()}) {
    texts += (texts.empty() ? "" : "|") + text.value_or("unset");
  }
  return texts;
}

std::string describe(const ModelList &list) {
  std::string entries = std::to_string(list.size());
  for (const ModelInfo &info : list) entries += " [" + describe(info) + "]";
  return entries;
}

// The table of the exported functions: how each logs its entry, complains of a missing pointer, and
// is called.
#define FUNCTION(function, level, message, null_text, arguments)         \
  {                                                                      \
    "korvane_svcmgr_" #function, level, message, null_text, #arguments,  \
        []([[maybe_unused]] Handles &in, [[maybe_unused]] Others &out) { \
          return korvane_svcmgr_##function arguments;                    \
        }                                                                \
  }
#define AT_DEBUG(function, null_text, arguments) \
  FUNCTION(function, "D ", "korvane_svcmgr_" #function, null_text, arguments)
#define AT_INFO(function, arguments) \
  FUNCTION(function, "I ", "korvane_svcmgr_" #function, kLoud, arguments)
#define REQUEST(function, arguments) \
  FUNCTION(function, "I ", "__ korvane_svcmgr_" #function " __", kPlain, arguments)
#define CREATE_AND_DESTROY(object, member) \
  AT_INFO(object##_create, (out.to(out.member))), AT_INFO(object##_destroy, (in.member.get()))
#define TEXT_FIELD(field)                                                    \
  AT_DEBUG(ai_model_info_set_##field, kQuiet, (in.info.get(), out.text_in)), \
      AT_DEBUG(ai_model_info_get_##field, kQuiet, (in.info.get(), out.to(out.text)))
#define NUMBER_FIELD(field, value)                                                                \
  FUNCTION(ai_progress_set_##field, "D ", "set [" #value "]", kLoud, (in.progress.get(), value)), \
      AT_DEBUG(ai_progress_get_##field, kLoud, (in.progress.get(), out.to(out.number)))

constexpr const char *kPlain = "parameter is NULL!!";
constexpr const char *kQuiet = "Invalid parameter";
constexpr const char *kLoud = "Invalid parameter!!";

const std::vector<ApiCall> kApiCalls = {
    AT_DEBUG(connect, kPlain, (out.callback, nullptr)),
    AT_DEBUG(disconnect, kPlain, ()),
    AT_DEBUG(get_client_api_level, kPlain, (out.to(out.number))),
    AT_DEBUG(get_agent_api_level, kPlain, (out.to(out.number))),
    AT_DEBUG(get_license_fulltext, kPlain, (out.to(out.text))),
    AT_DEBUG(request_update, kPlain, ()),
    AT_DEBUG(request_update_with_list, kPlain, (in.agents.get(), nullptr)),
    AT_DEBUG(set_update_status_cb, kPlain, (out.callback, nullptr)),
    AT_DEBUG(unset_update_status_cb, kPlain, ()),
    AT_DEBUG(is_being_updated, kPlain, (out.to(out.truth))),
    CREATE_AND_DESTROY(agent_list, agents),
    CREATE_AND_DESTROY(ai_model_info, info),
    CREATE_AND_DESTROY(ai_model_list, models),
    AT_DEBUG(agent_list_get_size, kQuiet, (in.agents.get(), out.to(out.number))),
    AT_DEBUG(agent_list_add, kLoud, (in.agents.get(), out.text_in)),
    AT_DEBUG(agent_list_get, kLoud, (in.agents.get(), 0, out.to(out.text))),
    TEXT_FIELD(id),
    TEXT_FIELD(version),
    TEXT_FIELD(title),
    TEXT_FIELD(description),
    AT_DEBUG(ai_model_list_get_size, kQuiet, (in.models.get(), out.to(out.number))),
    AT_DEBUG(ai_model_list_add, kLoud, (in.models.get(), in.info.get())),
    AT_DEBUG(ai_model_list_get, kLoud, (in.models.get(), 0, out.to(out.info))),
    FUNCTION(ai_progress_create, "D ", "create progress", kLoud, (out.to(out.progress))),
    FUNCTION(ai_progress_destroy, "D ", "destroy progress", kLoud, (in.progress.get())),
    NUMBER_FIELD(state, 150),
    NUMBER_FIELD(index, -1),
    NUMBER_FIELD(count, 2),
    NUMBER_FIELD(percentage, 101),
    REQUEST(ai_request_usable_model_list, (out.callback, nullptr)),
    REQUEST(ai_request_usable_model_list_with_description, (out.callback, nullptr)),
    REQUEST(ai_request_usable_model_list_with_category, (out.callback, "vision", nullptr)),
    REQUEST(ai_request_model_version_list, (in.info.get(), out.callback, nullptr)),
    REQUEST(ai_request_to_update, (in.models.get(), out.callback, nullptr)),
    REQUEST(ai_request_to_uninstall, (in.models.get(), out.callback, nullptr)),
    REQUEST(ai_register_status_cb, (out.callback, nullptr)),
    REQUEST(ai_deregister_status_cb, ())};

const ApiCall &find_call(const std::string &name) {
  const auto has_name = [&](const ApiCall &function) { return function.name == name; };
  return *std::find_if(kApiCalls.begin(), kApiCalls.end(), has_name);
}
