// The cost of the library alone, on a platform with fixed answers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include "SvcMgrAppProxy.h"
#include "allocations.h"
#include "canned_platform.h"
#include "korvane_svcmgr.h"

namespace {

using bench::Allocations;
using rpc_port::SvcMgrAppProxy::proxy::AIModelList;
using rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort;

/** A connected application. */
class Application {
 public:
  Application() {
    korvane_svcmgr_connect([](int, korvane_svcmgr_connection_state_e, void *) {}, nullptr);
    bench::report_connected();
  }
  Application(const Application &) = delete;
  Application &operator=(const Application &) = delete;
  ~Application() { korvane_svcmgr_disconnect(); }
};

/** Reports the heap allocations since a moment, per item. */
void report_allocations(benchmark::State &state, const Allocations &since, std::int64_t items) {
  const Allocations now = Allocations::so_far();
  const auto each = [items](std::size_t before, std::size_t after) {
    return static_cast<double>(after - before) / static_cast<double>(items);
  };
  state.counters["allocations"] = each(since.count, now.count);
  state.counters["bytes"] = each(since.bytes, now.bytes);
}

void synchronous_call(benchmark::State &state) {
  const Application application;
  int level = 0;
  korvane_svcmgr_get_agent_api_level(&level);
  const Allocations before = Allocations::so_far();
  for ([[maybe_unused]] const auto iteration : state) {
    korvane_svcmgr_get_agent_api_level(&level);
    benchmark::DoNotOptimize(level);
  }
  report_allocations(state, before, state.iterations());
}

/**
 * Ignores its answers. The next look-up depends on the step read here, so that the processor cannot
 * overlap look-ups and make them seem cheaper than a single answer.
 */
class IdleDelegate : public SvcMgrAppPort::RequestToUpdateCallback {
 public:
  explicit IdleDelegate(std::size_t step = 1) : RequestToUpdateCallback(false), step_(step) {}
  void ReceiveParcel(rpc_port_parcel_h /*parcel*/) override { next_step = step_; }

  static inline std::size_t next_step = 1;

 private:
  std::size_t step_;
};

struct IdleListener : SvcMgrAppPort::IEventListener {
  void OnConnected() override {}
  void OnDisconnected() override {}
  void OnRejected() override {}
};

using Delegates = std::vector<bench::DelegateBlock>;

/** Requests that stay open. */
Delegates open_requests(SvcMgrAppPort &port, std::int64_t count) {
  Delegates open;
  for (std::int64_t i = 0; i < count; ++i) {
    port.RequestToUpdate(std::make_unique<IdleDelegate>(), AIModelList());
    open.push_back(bench::last_request());
  }
  return open;
}

/** Random order, so that consecutive delegates are far apart in memory. */
void shuffle(Delegates &delegates) {
  std::shuffle(delegates.begin(), delegates.end(), std::mt19937(1));
}

template <typename Find>
void find_in_turn(benchmark::State &state, const Delegates &sought, Find find) {
  std::size_t next = 0;
  for ([[maybe_unused]] const auto iteration : state) {
    find(sought[next]);
    next += IdleDelegate::next_step;
    if (next == sought.size()) next = 0;
  }
}

/** Answers to the latest request. */
void find_newest_delegate(benchmark::State &state) {
  IdleListener listener;
  SvcMgrAppPort port(&listener, "");
  bench::report_connected();
  const Delegates open = open_requests(port, state.range(0));
  find_in_turn(state, {open.back()}, bench::deliver_progress);
}

void find_any_delegate(benchmark::State &state) {
  IdleListener listener;
  SvcMgrAppPort port(&listener, "");
  bench::report_connected();
  Delegates open = open_requests(port, state.range(0));
  shuffle(open);
  find_in_turn(state, open, bench::deliver_progress);
}

/** The time of the standard hash map to find and call the same number of objects. */
void find_in_hash_map(benchmark::State &state) {
  std::unordered_map<std::uint64_t, std::unique_ptr<SvcMgrAppPort::CallbackBase>> map;
  Delegates keys;
  const auto key = [](bench::DelegateBlock block) {
    return static_cast<std::uint64_t>(block.id) << 32 | static_cast<std::uint32_t>(block.sequence);
  };
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    auto delegate = std::make_unique<IdleDelegate>();
    keys.push_back({delegate->GetId(), delegate->GetSeq()});
    map.emplace(key(keys.back()), std::move(delegate));
  }
  shuffle(keys);
  find_in_turn(state, keys, [&](bench::DelegateBlock block) {
    map.find(key(block))->second->ReceiveParcel(nullptr);
  });
}

double processor_seconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

using ModelLists = std::vector<korvane_svcmgr_ai_model_list_h>;

void keep_list(int /*result*/, korvane_svcmgr_ai_model_list_h list, void *lists) {
  static_cast<ModelLists *>(lists)->push_back(list);
}

/** The number of lists handled between two stops of the clock. */
int lists_at_a_time(int models) {
  return std::max(1, 1000 / models);
}

void receive_lists(bench::DelegateBlock request, int models) {
  for (int i = 0; i < lists_at_a_time(models); ++i) bench::deliver_models(request, models);
}

void destroy_lists(ModelLists &lists) {
  for (const auto list : lists) korvane_svcmgr_ai_model_list_destroy(list);
  lists.clear();
}

/** Receives and destroys lists of models; only one of the two is timed. */
template <bool receiving>
void model_list(benchmark::State &state) {
  const Application application;
  const auto models = static_cast<int>(state.range(0));
  ModelLists lists;
  lists.reserve(static_cast<std::size_t>(lists_at_a_time(models)));
  korvane_svcmgr_ai_request_usable_model_list(keep_list, &lists);
  const bench::DelegateBlock request = bench::last_request();
  receive_lists(request, models);
  destroy_lists(lists);
  const Allocations before = Allocations::so_far();
  for ([[maybe_unused]] const auto iteration : state) {
    const double begin = processor_seconds();
    receive_lists(request, models);
    const double middle = processor_seconds();
    destroy_lists(lists);
    const double end = processor_seconds();
    state.SetIterationTime(receiving ? middle - begin : end - middle);
  }
  const std::int64_t items = state.iterations() * models * lists_at_a_time(models);
  state.counters["models"] = static_cast<double>(models) * lists_at_a_time(models);
  report_allocations(state, before, items);
}

BENCHMARK(synchronous_call);
BENCHMARK(find_newest_delegate)->RangeMultiplier(10)->Range(1, 100000);
BENCHMARK(find_any_delegate)->RangeMultiplier(10)->Range(1, 100000);
BENCHMARK(find_in_hash_map)->RangeMultiplier(10)->Range(1, 100000);
BENCHMARK(model_list<true>)
    ->Name("receive_models")
    ->RangeMultiplier(10)
    ->Range(1, 100000)
    ->UseManualTime();
BENCHMARK(model_list<false>)
    ->Name("destroy_models")
    ->RangeMultiplier(10)
    ->Range(1, 100000)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
