#include "library_test.h"

#include <cstdlib>
#include <utility>

#include "SvcMgrAppProxyHandler.h"

// clang-format off
LibraryTest::~LibraryTest() { if (!directory_.empty()) std::filesystem::remove_all(directory_); }

std::filesystem::path LibraryTest::directory() {
  std::string name = (std::filesystem::temp_directory_path() / "korvaneXXXXXX").string();
  return directory_.empty() ? directory_ = mkdtemp(name.data()) : directory_; }

std::filesystem::path LibraryTest::own_program() {
  std::string path = std::filesystem::read_symlink("/proc/self/exe"), prefix;
  while (prefix.size() < 52) prefix += "/.";
  return prefix + path; }
// clang-format on

void LibraryTest::hear(void *test, std::string text, std::initializer_list<int> values) {
  const AllocationScope library(false);
  auto *self = static_cast<LibraryTest *>(test);
  for (const int value : values) text += " " + std::to_string(value);
  self->heard.push_back(text);
  const auto react = std::exchange(self->reaction, nullptr);
  if (react) react();
}

void LibraryTest::on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test) {
  const AllocationScope library(false);
  hear(test, "models " + std::to_string(result) + " " + (list ? describe(list) : "null"), {});
  korvane_svcmgr_ai_model_list_destroy(list);
}

void LibraryTest::on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test) {
  const AllocationScope library(false);
  int values[] = {-77, -77, -77, -77}, *next = values;
  korvane_svcmgr_ai_progress_get_state(progress, next++);
  korvane_svcmgr_ai_progress_get_index(progress, next++);
  korvane_svcmgr_ai_progress_get_count(progress, next++);
  korvane_svcmgr_ai_progress_get_percentage(progress, next++);
  korvane_svcmgr_ai_progress_destroy(progress);
  hear(test, "progress", {result, values[0], values[1], values[2], values[3]});
}

// clang-format off
void LibraryTest::connect() {
  ASSERT_EQ(0, start_connecting());
  platform.report_connected(), platform.forget(), heard.clear(); }
// clang-format on

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
  platform.repair(), platform.on_send = nullptr;
  korvane_svcmgr_connect(Callback(), nullptr);
  if (!SvcMgrAppProxyHandler::GetInstance().IsConnected()) platform.report_connected();
  korvane_svcmgr_disconnect();
  korvane_svcmgr_set_update_status_cb(Callback(), nullptr);
  platform.emit(".update_status", {{"Complete", "done"}});
  korvane_svcmgr_unset_update_status_cb(), korvane_svcmgr_ai_deregister_status_cb();
  EXPECT_EQ(0U, platform.live.size() + platform.violations.size());
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

// clang-format off
Handles::~Handles() {
  korvane_svcmgr_agent_list_destroy(agents), korvane_svcmgr_ai_model_info_destroy(info);
  korvane_svcmgr_ai_model_list_destroy(models), korvane_svcmgr_ai_progress_destroy(progress); }

bool Others::untouched() const { return number == -77 && !truth && !text && made.empty(); }
bool Handles::empty() const { return !agents && !info && !models && !progress; }

std::string describe(korvane_svcmgr_ai_model_info_h info) {
  std::string texts;
  for (const auto get : {korvane_svcmgr_ai_model_info_get_id, korvane_svcmgr_ai_model_info_get_version,
                         korvane_svcmgr_ai_model_info_get_title, korvane_svcmgr_ai_model_info_get_description}) {
    char *text = nullptr; const int error = get(info, &text);
    texts += (texts.empty() ? "" : "|") + (error == 0 ? std::string(text) : std::to_string(error)); std::free(text); }
  return texts; }

std::string describe(korvane_svcmgr_ai_model_list_h list) {
  int size = 0; EXPECT_EQ(0, korvane_svcmgr_ai_model_list_get_size(list, &size));
  std::string entries = std::to_string(size);
  for (int index = 0; index < size; ++index) {
    Handles copy(false); EXPECT_EQ(0, korvane_svcmgr_ai_model_list_get(list, index, &copy.info));
    entries += " [" + describe(copy.info) + "]"; }
  return entries; }

// The table, one line for each function or family.
#define CALL(name, entry, text, takes, ...) \
  {"korvane_svcmgr_" #name, entry, text, takes, []([[maybe_unused]] Handles &h, [[maybe_unused]] Others &o) { \
     return korvane_svcmgr_##name(__VA_ARGS__); }}
#define DEBUG(name, ...) CALL(name, "D korvane_svcmgr_" #name, __VA_ARGS__)
#define INFO(name, ...) CALL(name, "I korvane_svcmgr_" #name, __VA_ARGS__)
#define REQUEST(name, ...) CALL(ai_##name, "I __ korvane_svcmgr_ai_" #name " __", kPlain, __VA_ARGS__)
#define OBJECT(name, member) \
  INFO(name##_create, kLoud, kOther, o.out(o.made.member)), INFO(name##_destroy, kLoud, kHandle, h.member)
#define TEXT_FIELD(name) \
  DEBUG(ai_model_info_set_##name, kQuiet, kBoth, h.info, o.name_in), \
  DEBUG(ai_model_info_get_##name, kQuiet, kBoth, h.info, o.out(o.text))
#define NUMBER_FIELD(name, value) \
  CALL(ai_progress_set_##name, "D set [" #value "]", kLoud, kHandle, h.progress, value), \
  DEBUG(ai_progress_get_##name, kLoud, kBoth, h.progress, o.out(o.number))

constexpr const char *kPlain = "parameter is NULL!!", *kQuiet = "Invalid parameter", *kLoud = "Invalid parameter!!";

const std::vector<ApiCall> kApiCalls = {
    DEBUG(connect, kPlain, kOther, o.callback, nullptr), DEBUG(disconnect, kPlain, kNeither, ),
    DEBUG(get_client_api_level, kPlain, kOther, o.out(o.number)),
    DEBUG(get_agent_api_level, kPlain, kOther, o.out(o.number)),
    DEBUG(get_license_fulltext, kPlain, kOther, o.out(o.text)),
    DEBUG(request_update, kPlain, kNeither, ),
    DEBUG(request_update_with_list, kPlain, kHandle, h.agents, nullptr),
    DEBUG(set_update_status_cb, kPlain, kOther, o.callback, nullptr),
    DEBUG(unset_update_status_cb, kPlain, kNeither, ),
    DEBUG(is_being_updated, kPlain, kOther, o.out(o.truth)),
    OBJECT(agent_list, agents), OBJECT(ai_model_info, info), OBJECT(ai_model_list, models),
    DEBUG(agent_list_get_size, kQuiet, kBoth, h.agents, o.out(o.number)),
    DEBUG(agent_list_add, kLoud, kBoth, h.agents, o.name_in),
    DEBUG(agent_list_get, kLoud, kBoth, h.agents, 0, o.out(o.text)),
    TEXT_FIELD(id), TEXT_FIELD(version), TEXT_FIELD(title), TEXT_FIELD(description),
    DEBUG(ai_model_list_get_size, kQuiet, kBoth, h.models, o.out(o.number)),
    DEBUG(ai_model_list_add, kLoud, kHandle, h.models, h.info),
    DEBUG(ai_model_list_get, kLoud, kBoth, h.models, 0, o.out(o.made.info)),
    CALL(ai_progress_create, "D create progress", kLoud, kOther, o.out(o.made.progress)),
    CALL(ai_progress_destroy, "D destroy progress", kLoud, kHandle, h.progress),
    NUMBER_FIELD(state, 150), NUMBER_FIELD(index, -1), NUMBER_FIELD(count, 2),
    NUMBER_FIELD(percentage, 101), REQUEST(request_usable_model_list, kOther, o.callback, nullptr),
    REQUEST(request_usable_model_list_with_description, kOther, o.callback, nullptr),
    REQUEST(request_usable_model_list_with_category, kOther, o.callback, "vision", nullptr),
    REQUEST(request_model_version_list, kBoth, h.info, o.callback, nullptr),
    REQUEST(request_to_update, kBoth, h.models, o.callback, nullptr),
    REQUEST(request_to_uninstall, kBoth, h.models, o.callback, nullptr),
    REQUEST(register_status_cb, kOther, o.callback, nullptr),
    REQUEST(deregister_status_cb, kNeither, )};
// clang-format on
