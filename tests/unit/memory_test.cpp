#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>

#include "library_test.h"

namespace {

/** The allocation of the library that fails, counted from 1; 0 for none. */
int failing = 0;
int allocations = 0;

/** The texts that the platform has handed out and that are not released; null places are free. */
std::array<void *, 100> handed_out = {};

bool fails_now() {
  return failing > 0 && AllocationScope::in_library && ++allocations == failing;
}

}  // namespace

#define WRAPPED(type, name, parameters, arguments)          \
  type __real_##name parameters;                            \
  type __wrap_##name parameters {                           \
    return fails_now() ? nullptr : __real_##name arguments; \
  }
extern "C" {
WRAPPED(void *, malloc, (std::size_t size), (size))
WRAPPED(char *, strndup, (const char *text, std::size_t size), (text, size))

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
  char *const copy = __real_strdup(text);
  if (!AllocationScope::in_library)
    *std::find(handed_out.begin(), handed_out.end(), nullptr) = copy;
  return copy;
}

void __real_free(void *memory);
void __wrap_free(void *memory) {
  if (memory != nullptr)
    std::replace(handed_out.begin(), handed_out.end(), memory, static_cast<void *>(nullptr));
  __real_free(memory);
}
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return __wrap_malloc(size + 1);
}
void *operator new(std::size_t size) {
  void *memory = __wrap_malloc(size + 1);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void *memory) noexcept {
  std::free(memory);
}
void operator delete(void *memory, const std::nothrow_t &) noexcept {
  std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

class MemoryTest : public LibraryTest {
 protected:
  /** A connected application, on a device that answers all requests. */
  void prepare() {
    platform.reset();
    platform.resource_path = (directory() / "res/").string();
    platform.packages.push_back(
        {SVCMGR_VENDOR_PREFIX ".agent", "4", {{"ai-agent-category", "vision"}}});
    platform.on_send = [licence = std::string(100, 'x')] {
      const bool for_licence = platform.sent.back()[0] == ParcelValue(3);
      platform.main_port.incoming = {{0, for_licence ? ParcelValue(licence) : 0}};
    };
    connect();
  }
  /** Fails the first allocation of attempt, then the second and so on, until none fails. */
  void fail_each(const std::function<void()> &before, const std::function<void()> &attempt,
                 const std::function<void(bool)> &check) {
    bool failed = true;
    for (int number = 1; failed; ++number) {
      prepare();
      before();
      allocations = 0;
      failing = number;
      attempt();
      failed = std::exchange(failing, 0) <= allocations;
      check(failed);
      LibraryTest::TearDown();
    }
  }
};

TEST_F(MemoryTest, EveryCall) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  std::filesystem::create_symlink(std::string(60, '/') + program, directory() / "program");
  // The functions that have a code of their own for a failure of their work.
  const std::map<std::string, int> codes = {{"connect", -38},
                                            {"get_client_api_level", SVCMGR_ERROR_NOT_SUPPORTED},
                                            {"get_agent_api_level", SVCMGR_ERROR_INVALID_API_LEVEL},
                                            {"get_license_fulltext", 0},
                                            {"request_update", -107},
                                            {"request_update_with_list", -107}};
  int failures = 0;
  for (const ApiCall &function : kApiCalls) {
    if (function.name.find("_destroy") != std::string::npos) continue;
    SCOPED_TRACE(function.name);
    const auto known = codes.find(function.name.substr(15));
    const int other = function.name.find("_ai_request") != std::string::npos ? -38 : -12;
    const int own = known != codes.end() ? known->second : other;
    std::optional<Handles> in;
    std::optional<Others> out;
    int code = 0;
    const auto before = [&] {
      in.emplace();
      out.emplace();
      if (function.name == "korvane_svcmgr_connect") korvane_svcmgr_disconnect();
    };
    fail_each(
        before,
        [&] {
          platform.forget();
          code = function.call(*in, *out);
        },
        [&](bool failed) {
          EXPECT_TRUE(failed ? code == own || code == -12 : code == 0) << code;
          if (!failed) return;
          ++failures;
          const bool creates = function.name.find("_create") != std::string::npos;
          EXPECT_LOG_HAS(creates ? "|E " + function.name + ": Failed to create " : "");
          EXPECT_TRUE(out->untouched());
          EXPECT_EQ("1 [m1|1.0|Title|Description]", describe(in->models));
          EXPECT_EQ("m1|1.0|Title|Description", describe(in->info));
          EXPECT_EQ(1, in->agents.size());
          EXPECT_EQ(0, function.call(*in, *out)) << "works again";
        });
  }
  EXPECT_LT(10, failures);
}

TEST_F(MemoryTest, InsideACallbackNoTextOfThePlatformIsAlive) {
  connect();
  korvane_svcmgr_ai_request_usable_model_list(on_models, this);
  std::ptrdiff_t alive = -1;
  reaction = [&alive] {
    alive = std::count_if(handed_out.begin(), handed_out.end(), [](void *text) { return text; });
  };
  answer(1, {0, Count{2}, "a", "1", "t", "d", "b", "2", "u", "e", 2});
  EXPECT_HEARD("models 0 2 [a|1|t|d] [b|2|u|e]");
  EXPECT_EQ(0, alive);
}

TEST_F(MemoryTest, EveryEvent) {
  const std::string id = "a long enough model ID to be allocated", limit(2048, 'd');
  const bundle_s update = {{"Update", "announced"}}, launch = {{"Launch", "announced"}},
                 own = {{"org.example.app", Bytes{0, 0, 0, 0}}}, started = {{"START", "s"}};
  const auto before = [&] {
    const Handles handles;
    korvane_svcmgr_ai_request_usable_model_list(on_models, this);
    korvane_svcmgr_ai_request_to_update(handles.models.get(), on_progress, this);
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
  };
  const auto events = [&] {
    korvane_svcmgr_request_update();
    const AllocationScope test(false);
    answer(1, {0, Count{1}, id, "1", "t", limit + "cut", 1});
    answer(4, {0, 20, 0, 1, 100});
    platform.emit(".update_status", own);
    platform.emit(".model_status", started);
  };
  fail_each(before, events, [&](bool failed) {
    EXPECT_THAT(heard, ::testing::Not(::testing::Contains(::testing::HasSubstr("unset"))))
        << "no model is filled in part";
    if (failed) events();
    ASSERT_LE(4U, heard.size());
    EXPECT_THAT(Texts(heard.end() - 4, heard.end()),
                ::testing::ElementsAre("models 0 1 [" + id + "|1|t|" + limit + "]",
                                       "progress 0 20 0 1 100", "update 1", "model 0 17"));
  });

  const auto update_of_the_service = [&] {
    platform.emit(".agent_status", update);
    platform.report_disconnected();
    platform.emit(".agent_status", launch);
    platform.report_connected();
  };
  fail_each([] {}, update_of_the_service,
            [&](bool failed) {
              EXPECT_TRUE(failed || heard.empty()) << "nothing is told of it";
              int level = 0;
              if (start_connecting() == 0) platform.report_connected();
              EXPECT_EQ(0, korvane_svcmgr_get_agent_api_level(&level))
                  << "connected, or can connect again";
            });
}

}  // namespace
