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

/** Lets one allocation of the library after the other fail. */
class MemoryTest : public LibraryTest {
 protected:
  /** A connected application, on a device that answers all requests. */
  void prepare() {
    platform.reset();
    platform.resource_path = (directory() / "res/").string();
    platform.install(SVCMGR_VENDOR_PREFIX ".agent", "4").metadata = {
        {"ai-agent-category", "vision"}};
    platform.on_send = [licence = std::string(100, 'x')] {
      const bool for_licence = platform.sent.back()[0] == ParcelValue(3);
      platform.main_port.incoming = {{0, for_licence ? ParcelValue(licence) : 0}};
    };
    connect();
  }
  /** Fails the first allocation of attempt, then the second and so on, until none fails. */
  void fail_each(const std::function<void()> &before, const std::function<void()> &attempt,
                 const std::function<void(bool failed)> &check) {
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
  /** The code for a failure of a function's work; running out of memory has a code as well. */
  static int code_of_failure(const std::string &name) {
    const std::map<std::string, int> codes = {
        {"korvane_svcmgr_connect", SVCMGR_ERROR_INVALID_OPERATION},
        {"korvane_svcmgr_get_client_api_level", SVCMGR_ERROR_NOT_SUPPORTED},
        {"korvane_svcmgr_get_agent_api_level", SVCMGR_ERROR_INVALID_API_LEVEL},
        {"korvane_svcmgr_get_license_fulltext", SVCMGR_ERROR_NONE},
        {"korvane_svcmgr_request_update", SVCMGR_ERROR_NOT_CONNECTED},
        {"korvane_svcmgr_request_update_with_list", SVCMGR_ERROR_NOT_CONNECTED}};
    const auto known = codes.find(name);
    if (known != codes.end()) return known->second;
    const bool sends = name.find("_ai_request") != std::string::npos;
    return sends ? SVCMGR_ERROR_INVALID_OPERATION : SVCMGR_ERROR_OUT_OF_MEMORY;
  }
  void expect_call_survives(const ApiCall &function);
};

void MemoryTest::expect_call_survives(const ApiCall &function) {
  std::optional<Arguments> arguments;
  int code = 0;
  const auto before = [&] {
    arguments.emplace();
    if (function.name == "korvane_svcmgr_connect") korvane_svcmgr_disconnect();
  };
  const auto call = [&] {
    platform.forget();
    code = function.call(*arguments);
  };
  fail_each(before, call, [&](bool failed) {
    if (!failed) {
      EXPECT_EQ(SVCMGR_ERROR_NONE, code);
      return;
    }
    EXPECT_THAT(code, ::testing::AnyOf(code_of_failure(function.name), SVCMGR_ERROR_OUT_OF_MEMORY));
    EXPECT_TRUE(arguments->outputs_untouched());
    EXPECT_EQ("[m1|1.0|Title|Description]", describe(arguments->handles.models));
    EXPECT_EQ("m1|1.0|Title|Description", describe(arguments->handles.info));
    EXPECT_EQ(1, arguments->handles.agents.size());
    EXPECT_EQ(SVCMGR_ERROR_NONE, function.call(*arguments)) << "works again";
  });
}

TEST_F(MemoryTest, ACallThatRunsOutOfMemoryChangesNothing) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  std::filesystem::create_symlink(std::string(60, '/') + program, directory() / "program");
  for (const ApiCall &function : kApiCalls) {
    SCOPED_TRACE(function.name);
    if (function.name.find("_destroy") == std::string::npos) expect_call_survives(function);
  }
}

TEST_F(MemoryTest, AHandleThatCannotBeMadeIsLogged) {
  for (const std::string object : {"agent_list", "ai_model_info", "ai_model_list", "ai_progress"}) {
    Arguments arguments;
    const std::string name = "korvane_svcmgr_" + object + "_create";
    for (const ApiCall &function : kApiCalls) {
      if (function.name != name) continue;
      allocations = 0;
      failing = 1;
      EXPECT_EQ(SVCMGR_ERROR_OUT_OF_MEMORY, function.call(arguments));
      failing = 0;
    }
    EXPECT_THAT(platform.take_log(), Contains(HasSubstr("E " + name + ": Failed to create ")));
  }
}

TEST_F(MemoryTest, AnAnswerOrEventThatRunsOutOfMemoryLetsTheNextOneArrive) {
  const std::string id = "a long enough model ID to be allocated", limit(2048, 'd');
  const auto before = [&] {
    const Handles handles;
    answers.clear();
    update_statuses.clear();
    model_states.clear();
    korvane_svcmgr_ai_request_usable_model_list(on_models, this);
    korvane_svcmgr_ai_request_to_update(handles.models.get(), on_progress, this);
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
  };
  const auto events = [&] {
    korvane_svcmgr_request_update();
    const AllocationScope test(false);
    answer_delegate(1, {0, Count{1}, id, "1", "t", limit + "cut", 1});
    answer_delegate(4, {0, SVCMGR_AI_STATE_COMPLETED, 0, 1, 100});
    platform.emit(".update_status", {{"org.example.app", Bytes{0, 0, 0, 0}}});
    platform.emit(".model_status", {{"START", "s"}});
  };
  fail_each(before, events, [&](bool failed) {
    for (const Answer &answer : answers)
      EXPECT_THAT(answer.contents, Not(HasSubstr("unset"))) << "no model is filled in part";
    if (failed) events();
    ASSERT_LE(2U, answers.size());
    EXPECT_EQ("[" + id + "|1|t|" + limit + "]", (answers.end() - 2)->contents);
    EXPECT_EQ("state 20, model 0 of 1, 100 %", answers.back().contents);
    EXPECT_THAT(update_statuses, Contains(SVCMGR_UPDATE_STATUS_COMPLETED));
    EXPECT_THAT(model_states, Contains(SVCMGR_AI_STATE_START));
  });
}

TEST_F(MemoryTest, AfterAnUpdateThatRunsOutOfMemoryTheApplicationCanConnect) {
  const auto update_service_manager = [] {
    announce_update();
    lose_connection();
    announce_launch();
    platform.report_connected();
  };
  fail_each([] {}, update_service_manager,
            [&](bool failed) {
              EXPECT_TRUE(failed || connection_states.empty());
              int level = 0;
              if (start_connecting() == SVCMGR_ERROR_NONE) platform.report_connected();
              EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_get_agent_api_level(&level));
            });
}

TEST_F(MemoryTest, InsideACallbackNoTextOfThePlatformIsAlive) {
  connect();
  korvane_svcmgr_ai_request_usable_model_list(on_models, this);
  std::ptrdiff_t alive = -1;
  reaction = [&alive] {
    alive = std::count_if(handed_out.begin(), handed_out.end(), [](void *text) { return text; });
  };
  answer_delegate(1, {0, Count{2}, "a", "1", "t", "d", "b", "2", "u", "e", 2});
  EXPECT_EQ("[a|1|t|d][b|2|u|e]", answers.back().contents);
  EXPECT_EQ(0, alive);
}

}  // namespace
