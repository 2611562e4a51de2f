#include "library_test.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

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
  hear(test, "models " + std::to_string(result) + " " + (list ? describe(list) : "null"));
  korvane_svcmgr_ai_model_list_destroy(list);
}

void LibraryTest::on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test) {
  const AllocationScope library(false);
  int state = -77, index = -77, count = -77, percentage = -77;
  korvane_svcmgr_ai_progress_get_state(progress, &state);
  korvane_svcmgr_ai_progress_get_index(progress, &index);
  korvane_svcmgr_ai_progress_get_count(progress, &count);
  korvane_svcmgr_ai_progress_get_percentage(progress, &percentage);
  korvane_svcmgr_ai_progress_destroy(progress);
  hear(test, "progress", {result, state, index, count, percentage});
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
  korvane_svcmgr_disconnect();
  korvane_svcmgr_connect(Callback(), nullptr);
  platform.report_connected();
  korvane_svcmgr_disconnect();
  korvane_svcmgr_unset_update_status_cb();
  korvane_svcmgr_ai_deregister_status_cb();
  UpdateObserver().FinishUpdate();
  EXPECT_TRUE(platform.proxies.empty());
  EXPECT_EQ(Texts(), platform.violations);
}

Handles::Handles(bool filled) {
  if (!filled) return;
  EXPECT_EQ(0, korvane_svcmgr_agent_list_create(&agents));
  EXPECT_EQ(0, korvane_svcmgr_agent_list_add(agents, "agent.one"));
  EXPECT_EQ(0, korvane_svcmgr_ai_model_list_create(&models));
  EXPECT_EQ(0, korvane_svcmgr_ai_progress_create(&progress));
  add_model({"m1", "1.0", "Title", "Description"});
  EXPECT_EQ(0, korvane_svcmgr_ai_model_list_get(models, 0, &info));
}

void Handles::add_model(const std::vector<const char *> &texts) {
  Handles model(false);
  EXPECT_EQ(0, korvane_svcmgr_ai_model_info_create(&model.info));
  korvane_svcmgr_ai_model_info_set_id(model.info, texts[0]);
  korvane_svcmgr_ai_model_info_set_version(model.info, texts[1]);
  korvane_svcmgr_ai_model_info_set_title(model.info, texts[2]);
  korvane_svcmgr_ai_model_info_set_description(model.info, texts[3]);
  EXPECT_EQ(0, korvane_svcmgr_ai_model_list_add(models, model.info));
}

Handles::~Handles() {
  korvane_svcmgr_agent_list_destroy(agents);
  korvane_svcmgr_ai_model_info_destroy(info);
  korvane_svcmgr_ai_model_list_destroy(models);
  korvane_svcmgr_ai_progress_destroy(progress);
}

bool Others::untouched() const {
  const bool nothing_made = !made.agents && !made.info && !made.models && !made.progress;
  return number == -77 && !truth && !text && nothing_made;
}

std::string describe(korvane_svcmgr_ai_model_info_h info) {
  std::string texts;
  for (const auto get :
       {korvane_svcmgr_ai_model_info_get_id, korvane_svcmgr_ai_model_info_get_version,
        korvane_svcmgr_ai_model_info_get_title, korvane_svcmgr_ai_model_info_get_description}) {
    char *text = nullptr;
    const int error = get(info, &text);
    texts += (texts.empty() ? "" : "|") + (text ? std::string(text) : std::to_string(error));
    std::free(text);
  }
  return texts;
}

std::string describe(korvane_svcmgr_ai_model_list_h list) {
  int size = 0;
  EXPECT_EQ(0, korvane_svcmgr_ai_model_list_get_size(list, &size));
  std::string entries = std::to_string(size);
  for (int index = 0; index < size; ++index) {
    Handles copy(false);
    EXPECT_EQ(0, korvane_svcmgr_ai_model_list_get(list, index, &copy.info));
    entries += " [" + describe(copy.info) + "]";
  }
  return entries;
}

// The table of the exported functions: how each logs its entry, complains of a missing pointer, and
// is called.
#define FUNCTION(function, level, message, null_text, takes, arguments)  \
  {                                                                      \
    "korvane_svcmgr_" #function, level, message, null_text, takes,       \
        []([[maybe_unused]] Handles &in, [[maybe_unused]] Others &out) { \
          return korvane_svcmgr_##function arguments;                    \
        }                                                                \
  }
#define AT_DEBUG(function, null_text, takes, arguments) \
  FUNCTION(function, "D ", "korvane_svcmgr_" #function, null_text, takes, arguments)
#define AT_INFO(function, takes, arguments) \
  FUNCTION(function, "I ", "korvane_svcmgr_" #function, kLoud, takes, arguments)
#define REQUEST(function, takes, arguments) \
  FUNCTION(function, "I ", "__ korvane_svcmgr_" #function " __", kPlain, takes, arguments)
#define CREATE_AND_DESTROY(object, member)                     \
  AT_INFO(object##_create, kOther, (out.to(out.made.member))), \
      AT_INFO(object##_destroy, kHandle, (in.member))
#define TEXT_FIELD(field)                                                     \
  AT_DEBUG(ai_model_info_set_##field, kQuiet, kBoth, (in.info, out.text_in)), \
      AT_DEBUG(ai_model_info_get_##field, kQuiet, kBoth, (in.info, out.to(out.text)))
#define NUMBER_FIELD(field, value)                                            \
  FUNCTION(ai_progress_set_##field, "D ", "set [" #value "]", kLoud, kHandle, \
           (in.progress, value)),                                             \
      AT_DEBUG(ai_progress_get_##field, kLoud, kBoth, (in.progress, out.to(out.number)))

constexpr const char *kPlain = "parameter is NULL!!";
constexpr const char *kQuiet = "Invalid parameter";
constexpr const char *kLoud = "Invalid parameter!!";

const std::vector<ApiCall> kApiCalls = {
    AT_DEBUG(connect, kPlain, kOther, (out.callback, nullptr)),
    AT_DEBUG(disconnect, kPlain, kNeither, ()),
    AT_DEBUG(get_client_api_level, kPlain, kOther, (out.to(out.number))),
    AT_DEBUG(get_agent_api_level, kPlain, kOther, (out.to(out.number))),
    AT_DEBUG(get_license_fulltext, kPlain, kOther, (out.to(out.text))),
    AT_DEBUG(request_update, kPlain, kNeither, ()),
    AT_DEBUG(request_update_with_list, kPlain, kHandle, (in.agents, nullptr)),
    AT_DEBUG(set_update_status_cb, kPlain, kOther, (out.callback, nullptr)),
    AT_DEBUG(unset_update_status_cb, kPlain, kNeither, ()),
    AT_DEBUG(is_being_updated, kPlain, kOther, (out.to(out.truth))),
    CREATE_AND_DESTROY(agent_list, agents),
    CREATE_AND_DESTROY(ai_model_info, info),
    CREATE_AND_DESTROY(ai_model_list, models),
    AT_DEBUG(agent_list_get_size, kQuiet, kBoth, (in.agents, out.to(out.number))),
    AT_DEBUG(agent_list_add, kLoud, kBoth, (in.agents, out.text_in)),
    AT_DEBUG(agent_list_get, kLoud, kBoth, (in.agents, 0, out.to(out.text))),
    TEXT_FIELD(id),
    TEXT_FIELD(version),
    TEXT_FIELD(title),
    TEXT_FIELD(description),
    AT_DEBUG(ai_model_list_get_size, kQuiet, kBoth, (in.models, out.to(out.number))),
    AT_DEBUG(ai_model_list_add, kLoud, kHandle, (in.models, in.info)),
    AT_DEBUG(ai_model_list_get, kLoud, kBoth, (in.models, 0, out.to(out.made.info))),
    FUNCTION(ai_progress_create, "D ", "create progress", kLoud, kOther,
             (out.to(out.made.progress))),
    FUNCTION(ai_progress_destroy, "D ", "destroy progress", kLoud, kHandle, (in.progress)),
    NUMBER_FIELD(state, 150),
    NUMBER_FIELD(index, -1),
    NUMBER_FIELD(count, 2),
    NUMBER_FIELD(percentage, 101),
    REQUEST(ai_request_usable_model_list, kOther, (out.callback, nullptr)),
    REQUEST(ai_request_usable_model_list_with_description, kOther, (out.callback, nullptr)),
    REQUEST(ai_request_usable_model_list_with_category, kOther, (out.callback, "vision", nullptr)),
    REQUEST(ai_request_model_version_list, kBoth, (in.info, out.callback, nullptr)),
    REQUEST(ai_request_to_update, kBoth, (in.models, out.callback, nullptr)),
    REQUEST(ai_request_to_uninstall, kBoth, (in.models, out.callback, nullptr)),
    REQUEST(ai_register_status_cb, kOther, (out.callback, nullptr)),
    REQUEST(ai_deregister_status_cb, kNeither, ())};

const ApiCall &find_call(const std::string &name) {
  const auto has_name = [&](const ApiCall &function) { return function.name == name; };
  return *std::find_if(kApiCalls.begin(), kApiCalls.end(), has_name);
}
