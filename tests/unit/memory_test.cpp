#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
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
void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

class MemoryTest : public LibraryTest {
 protected:
  /** A connected application again, on a device that answers all requests. */
  void prepare() {
    LibraryTest::TearDown();
    platform.reset();
    platform.resource_path = (directory() / "res/").string();
    platform.install(SVCMGR_VENDOR_PREFIX ".agent", Arguments::kText).metadata = {
        {"ai-agent-category", Arguments::kText}};
    platform.on_send = [licence = std::string(100, 'x')] {
      const bool for_licence = platform.sent.back()[0] == ParcelValue(3);
      platform.main_port.incoming = {{0, for_licence ? ParcelValue(licence) : 0}};
    };
    connect();
  }
  /** Lets one allocation of an action fail, counted from 1; whether there is one. */
  template <typename Action>
  static bool fail(int allocation, Action action) {
    allocations = 0;
    failing = allocation;
    action();
    return std::exchange(failing, 0) <= allocations;
  }
};

TEST_F(MemoryTest, ACallThatRunsOutOfMemoryChangesNothing) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  std::filesystem::create_symlink(std::string(60, '/') + program, directory() / "program");
  for (const ApiCall &function : kApiCalls) {
    if (function.name.find("_destroy") != std::string::npos) continue;
    SCOPED_TRACE(function.name);
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      prepare();
      if (function.name == "korvane_svcmgr_connect") korvane_svcmgr_disconnect();
      Arguments arguments;
      int code = 0;
      failed = fail(allocation, [&] { code = function.call(arguments); });
      if (failed) {
        EXPECT_TRUE(code != SVCMGR_ERROR_NONE ||
                    function.name == "korvane_svcmgr_get_license_fulltext");
        EXPECT_NE(SVCMGR_ERROR_INVALID_PARAMETER, code);
        arguments.expect_unchanged();
        code = function.call(arguments);
      }
      EXPECT_EQ(SVCMGR_ERROR_NONE, code);
    }
  }
}

TEST_F(MemoryTest, AHandleThatCannotBeMadeIsLogged) {
  for (const ApiCall &function : kApiCalls) {
    if (function.name.find("_create") == std::string::npos) continue;
    Arguments arguments;
    fail(1, [&] { EXPECT_EQ(SVCMGR_ERROR_OUT_OF_MEMORY, function.call(arguments)); });
    EXPECT_THAT(platform.log, Contains(HasSubstr("E " + function.name + ": Failed to create ")));
  }
}

TEST_F(MemoryTest, ATextThatCannotBeStoredIsLackOfMemory) {
  const Handles handles;
  fail(1, [&] {
    EXPECT_EQ(SVCMGR_ERROR_OUT_OF_MEMORY,
              korvane_svcmgr_ai_model_info_set_id(handles.info.get(), "another"));
  });
  expect_logged({"E korvane_svcmgr_ai_model_info_set_id: Out of memory"});
}

TEST_F(MemoryTest, AfterAnAnswerOrEventThatRunsOutOfMemoryTheNextOneArrives) {
  const std::string id = "a long enough model ID to be allocated", limit(2048, 'd');
  const auto events = [&] {
    korvane_svcmgr_request_update();
    const AllocationScope test(false);
    answer_delegate(kModels, {0, Count{1}, id, "1", "t", limit + "cut", 1});
    answer_delegate(kUpdate, {0, SVCMGR_AI_STATE_COMPLETED, 0, 1, 100});
    platform.emit(".update_status", {{"org.example.app", Bytes{0, 0, 0, 0}}});
    platform.emit(".model_status", {{"START", "s"}});
  };
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    prepare();
    answers.clear();
    update_statuses.clear();
    model_states.clear();
    korvane_svcmgr_ai_request_usable_model_list(on_models, this);
    korvane_svcmgr_ai_request_to_update(Handles().models.get(), on_progress, this);
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
    failed = fail(allocation, events);
    for (const Answer &answer : answers)
      EXPECT_THAT(answer.contents, Not(HasSubstr("unset"))) << "no model is filled in part";
    if (failed) events();
    ASSERT_LE(2U, answers.size());
    EXPECT_EQ("[" + id + "|1|t|" + limit + "]", (answers.end() - 2)->contents);
    EXPECT_EQ("state 20, model 0 of 1, 100 %", answers.back().contents);
    EXPECT_THAT(update_statuses, Contains(SVCMGR_UPDATE_STATUS_COMPLETED));
    EXPECT_THAT(model_states, Contains(SVCMGR_AI_STATE_START));
  }
}

TEST_F(MemoryTest, AfterAnUpdateThatRunsOutOfMemoryTheApplicationCanConnect) {
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    prepare();
    failed = fail(allocation, [] {
      const AllocationScope test(false);
      announce_update();
      lose_connection();
      announce_launch();
      platform.report_connected();
    });
    EXPECT_TRUE(failed || connection_states.empty());
    int level = 0;
    if (start_connecting() == SVCMGR_ERROR_NONE) platform.report_connected();
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_get_agent_api_level(&level));
  }
}

TEST_F(MemoryTest, InsideACallbackNoTextOfThePlatformIsAlive) {
  connect();
  korvane_svcmgr_ai_request_usable_model_list(on_models, this);
  std::ptrdiff_t alive = -1;
  reaction = [&alive] {
    alive = std::count_if(handed_out.begin(), handed_out.end(), [](void *text) { return text; });
  };
  answer_delegate(kModels, {0, Count{2}, "a", "1", "t", "d", "b", "2", "u", "e", 2});
  EXPECT_EQ("[a|1|t|d][b|2|u|e]", answers.back().contents);
  EXPECT_EQ(0, alive);
}

}  // namespace
