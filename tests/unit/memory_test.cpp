#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>

#include "library_test.h"

namespace {

/** The allocation of the library that fails, counted from 1; 0 for none. */
int failing = 0, allocations = 0;
/** What the library has taken: bytes by operator new, and one for each allocation. */
std::size_t allocated = 0;

bool fails_now() {
  if (AllocationScope::in_library) ++allocated;
  return failing > 0 && AllocationScope::in_library && ++allocations == failing;
}

}  // namespace

// clang-format off
#define WRAPPED(type, name, parameters, arguments) \
  type __real_##name parameters; \
  type __wrap_##name parameters { return fails_now() ? nullptr : __real_##name arguments; }
extern "C" {
WRAPPED(void *, malloc, (std::size_t size), (size))
WRAPPED(void *, calloc, (std::size_t count, std::size_t size), (count, size))
WRAPPED(char *, strdup, (const char *text), (text))
WRAPPED(char *, strndup, (const char *text, std::size_t size), (text, size))
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept { return __wrap_malloc(size + 1); }
void *operator new(std::size_t size) {
  if (AllocationScope::in_library) allocated += size;
  void *memory = __wrap_malloc(size + 1);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, const std::nothrow_t &) noexcept { std::free(memory); }
void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }
// clang-format on

namespace {

class MemoryTest : public LibraryTest {
 protected:
  /** A connected application. */
  // clang-format off
  void prepare() {
    platform.reset();
    platform.resource_path = (directory() / "res/").string();
    platform.packages.push_back({SVCMGR_VENDOR_PREFIX ".agent", "4", {{"ai-agent-category", "vision"}}});
    platform.on_send = [this, text = ParcelValue(std::string(100, 'x'))] {
      platform.replies = {{0, platform.sent.back()[0] == ParcelValue(3) ? text : 0}};
    };
    connect();
    before();
  }
  // clang-format on
  /** Fails the first allocation of attempt, then the second and so on, until none fails. */
  void fail_each(const std::function<void()> &attempt, const std::function<void(bool)> &check) {
    for (int number = 1; number == 1 || failed; ++number) {
      prepare();
      allocations = 0, failing = number;
      attempt();
      failed = std::exchange(failing, 0) <= allocations;
      check(failed);
      LibraryTest::TearDown();
    }
  }
  std::function<void()> before = [] {};
  bool failed = false;
};

TEST_F(MemoryTest, EveryCall) {
  std::filesystem::create_symlink(own_program(), directory() / "program");
  // The functions that have a code of their own for a failure of their work.
  // clang-format off
  const std::map<std::string, int> codes = {
      {"connect", -38}, {"get_client_api_level", SVCMGR_ERROR_NOT_SUPPORTED}, {"request_update", -107},
      {"get_agent_api_level", SVCMGR_ERROR_INVALID_API_LEVEL}, {"get_license_fulltext", 0},
      {"request_update_with_list", -107}};
  // clang-format on
  int failures = 0;
  for (const ApiCall &row : kApiCalls) {
    if (row.name.find("_destroy") != std::string::npos) continue;
    SCOPED_TRACE(row.name);
    const auto known = codes.find(row.name.substr(15));
    const int other = row.name.find("_ai_request") != std::string::npos ? -38 : -12;
    const int own = known != codes.end() ? known->second : other;
    std::optional<Handles> handles;
    std::optional<Others> others;
    int code = 0;
    before = [&] {
      handles.emplace(true);
      others.emplace();
      if (row.name == "korvane_svcmgr_connect") korvane_svcmgr_disconnect();
    };
    fail_each([&] { code = row.call(*handles, *others); },
              [&](bool hit) {
                EXPECT_TRUE(hit ? code == own || code == -12 : code == 0) << code;
                if (!hit) return;
                ++failures;
                EXPECT_TRUE(others->untouched());
                EXPECT_EQ("1 [m1|1.0|Title|Description]", describe(handles->models));
                EXPECT_EQ(0, row.call(*handles, *others)) << "works again";
              });
  }
  EXPECT_LT(10, failures);
}

TEST_F(MemoryTest, EveryEvent) {
  const bundle_s own = {{"org.example.app", Bytes{0, 0, 0, 0}}}, started = {{"START", "s"}};
  const Parcel models = {0, Count{1}, "a long enough model ID to be allocated", "1", "t", "d", 1};
  const Parcel progress = {0, 20, 0, 1, 100};
  const std::string update_status = ".update_status", model_status = ".model_status";
  before = [&] {
    const Handles handles(true);
    korvane_svcmgr_ai_request_usable_model_list(on_models, this);
    korvane_svcmgr_ai_request_to_update(handles.models, on_progress, this);
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
  };
  const auto events = [&] {
    korvane_svcmgr_request_update();
    platform.report_connected();
    answer(1, models);
    answer(4, progress);
    platform.emit(update_status, own);
    platform.emit(model_status, started);
  };
  fail_each(events, [&](bool hit) {
    if (hit) events();
    ASSERT_LE(5U, heard.size());
    EXPECT_THAT(Texts(heard.end() - 5, heard.end()),
                ::testing::ElementsAre("connection 0 0",
                                       "models 0 1 [a long enough model ID to be allocated|1|t|d]",
                                       "progress 0 20 0 1 100", "update 1", "model 0 17"));
  });
}

TEST_F(MemoryTest, EveryStepOfAReconnection) {
  const bundle_s update = {{"Update", "announced"}}, launch = {{"Launch", "announced"}};
  const std::string agent_status = ".agent_status";
  const auto update_of_the_service = [&] {
    platform.emit(agent_status, update);
    platform.report_disconnected();
    platform.emit(agent_status, launch);
    if (!platform.proxies.empty()) platform.report_connected();
  };
  fail_each(update_of_the_service, [&](bool hit) {
    EXPECT_TRUE(hit || heard.empty()) << testing::PrintToString(heard);
    int level = 0;
    if (start_connecting() == 0) platform.report_connected();
    EXPECT_EQ(0, korvane_svcmgr_get_agent_api_level(&level)) << "connected, or can connect again";
  });
}

TEST_F(MemoryTest, AListThatClaimsMoreThanItBringsCostsNoMore) {
  prepare();
  korvane_svcmgr_ai_request_usable_model_list(on_models, this);
  const auto cost = [&](int claimed) {
    allocated = 0;
    answer(1, {0, Count{claimed}, "a long enough model ID to be allocated", "1", "t", "d", 1});
    return allocated;
  };
  const std::size_t honest = cost(1);
  EXPECT_LT(0U, honest);
  EXPECT_EQ(honest, cost(INT_MAX));
}

}  // namespace
