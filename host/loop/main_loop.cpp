#include "loop/main_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>

#include "guard.h"
#include "korvane_host.h"
#include "process.h"

namespace korvane::host {

namespace {

// The identities of the loop's own descriptors.
constexpr MainLoop::SourceId kWakeUp = 0;
constexpr MainLoop::SourceId kClock = 1;
constexpr MainLoop::SourceId kFirstSource = 2;

constexpr std::uint32_t kEdgeTriggered = EPOLLET;
constexpr std::uint32_t kOneTurn = EPOLLONESHOT;

UniqueFd checked(int descriptor, const char *what) {
  UniqueFd result(beyond_standard_streams(descriptor));
  if (!result) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

/** Calls a handler; false when it ran out of memory. */
template <typename Call>
bool completes(Call call) {
  try {
    call();
  } catch (const std::bad_alloc &) {
    return false;
  } catch (const std::exception &exception) {
    dlog_print(6, "KORVANE_HOST", "an event was not handled: %s", exception.what());
  }
  return true;
}

/** The loop of this process, and that of the one that forked it, if any, which is left alone. */
struct ProcessLoop {
  MainLoop loop;
  ProcessMark mark;
  ProcessLoop *inherited = nullptr;
};

}  // namespace

MainLoop &MainLoop::instance() {
  // Never destroyed: handles of the application may still refer to it at process exit.
  static std::atomic<ProcessLoop *> current{nullptr};
  ProcessLoop *found = current;
  if (found == nullptr || !found->mark.is_ours()) {
    auto fresh = std::make_unique<ProcessLoop>();
    fresh->inherited = found;
    if (current.compare_exchange_strong(found, fresh.get())) found = fresh.release();
  }
  return found->loop;
}

MainLoop::MainLoop()
    : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      wake_up_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      clock_(
          checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")),
      next_id_(kFirstSource) {
  arm(EPOLL_CTL_ADD, kWakeUp, wake_up_.get(), EPOLLIN);
  arm(EPOLL_CTL_ADD, kClock, clock_.get(), EPOLLIN);
}

MainLoop::~MainLoop() = default;

MainLoop::SourceId MainLoop::add_descriptor(int descriptor, std::uint32_t epoll_events,
                                            std::function<void(std::uint32_t)> handler) {
  return add(descriptor, epoll_events, UniqueFd(), std::move(handler));
}

MainLoop::SourceId MainLoop::add(int descriptor, std::uint32_t epoll_events, UniqueFd due,
                                 std::function<void(std::uint32_t)> handler) {
  auto source = std::make_shared<Source>(
      Source{descriptor, epoll_events, std::move(due), std::move(handler)});
  const std::lock_guard<std::mutex> guard(mutex_);
  const SourceId id = next_id_++;
  const auto entry = sources_.emplace(id, std::move(source)).first;
  if (arm(EPOLL_CTL_ADD, id, descriptor, epoll_events) != 0) {
    const int error = errno;
    sources_.erase(entry);
    throw std::system_error(error, std::generic_category(), "epoll_ctl");
  }
  return id;
}

void MainLoop::change_events(SourceId id, std::uint32_t epoll_events) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto source = sources_.find(id);
  if (source == sources_.end()) return;
  source->second->epoll_events = epoll_events;
  arm(EPOLL_CTL_MOD, id, source->second->descriptor, epoll_events);
}

bool MainLoop::Source::is_armed_for_good() const {
  return (epoll_events & kEdgeTriggered) != 0;
}

/**
 * Arms a source for one turn, unless epoll drops it from its queue by itself. Left there while it
 * is served it would keep its place, and what it gets next would overtake what other sources got
 * before that.
 */
int MainLoop::arm(int operation, SourceId id, int descriptor, std::uint32_t epoll_events) const {
  epoll_event event = {};
  event.events = epoll_events | ((epoll_events & kEdgeTriggered) != 0 ? 0U : kOneTurn);
  event.data.u64 = id;
  return epoll_ctl(epoll_.get(), operation, descriptor, &event);
}

void MainLoop::arm_again(SourceId id) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto entry = sources_.find(id);
  if (entry == sources_.end()) return;
  Source &source = *entry->second;
  source.is_served = false;
  if (source.is_armed_for_good() && !std::exchange(source.is_missed, false)) return;
  arm(EPOLL_CTL_MOD, id, source.descriptor, source.epoll_events);
}

MainLoop::SourceId MainLoop::add_timer(std::chrono::milliseconds delay,
                                       std::function<void()> handler) {
  const auto due = std::chrono::steady_clock::now() + delay;
  const std::lock_guard<std::mutex> guard(mutex_);
  const SourceId id = next_id_++;
  timers_.emplace(std::pair(due, id), std::move(handler));
  set_clock();
  return id;
}

void MainLoop::set_clock() const {
  itimerspec when = {};
  if (!timers_.empty()) {
    const auto due = timers_.begin()->first.first.time_since_epoch();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(due);
    when.it_value.tv_sec = static_cast<time_t>(whole.count());
    when.it_value.tv_nsec = static_cast<long>(std::chrono::nanoseconds(due - whole).count());
  }
  timerfd_settime(clock_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

MainLoop::SourceId MainLoop::post(std::function<void()> task) {
  UniqueFd due = checked(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
  const int descriptor = due.get();
  return add(descriptor, EPOLLIN, std::move(due),
             [task = std::move(task)](std::uint32_t) { task(); });
}

void MainLoop::remove(SourceId id) {
  // What handlers hold is let go after the lock.
  std::shared_ptr<Source> removed;
  decltype(timers_)::node_type removed_timer;
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto timer = std::find_if(timers_.begin(), timers_.end(),
                                  [id](const auto &entry) { return entry.first.second == id; });
  if (timer != timers_.end()) {
    removed_timer = timers_.extract(timer);
    set_clock();
  }
  const auto source = sources_.find(id);
  if (source == sources_.end()) return;
  removed = std::move(source->second);
  sources_.erase(source);
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, removed->descriptor, nullptr);
}

int MainLoop::run() {
  while (!quit_.exchange(false)) {
    const int result = step(-1);
    if (result < 0 && result != -EINTR) return result;
  }
  clear_wake_up();
  return 0;
}

void MainLoop::quit() {
  quit_ = true;
  wake_up();
}

void MainLoop::wake_up() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wake_up_.get(), &one, sizeof(one));
}

void MainLoop::clear_wake_up() {
  std::uint64_t value = 0;
  [[maybe_unused]] const ssize_t size = read(wake_up_.get(), &value, sizeof(value));
  arm(EPOLL_CTL_MOD, kWakeUp, wake_up_.get(), EPOLLIN);
}

int MainLoop::step(int timeout_ms) {
  if (owed_ && serve_owed()) return 1;
  epoll_event event = {};
  const int count = epoll_wait(epoll_.get(), &event, 1, timeout_ms);
  if (count < 0) return -errno;
  if (count == 0) return 0;
  if (event.data.u64 == kWakeUp) {
    clear_wake_up();
    return 1;
  }
  if (event.data.u64 == kClock) {
    serve_timer();
    return 1;
  }
  serve(SourceId{event.data.u64}, event.events);
  return 1;
}

void MainLoop::serve(SourceId id, std::uint32_t epoll_events) {
  std::shared_ptr<Source> source;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto entry = sources_.find(id);
    if (entry == sources_.end()) return;
    source = entry->second;
    if (source->is_armed_for_good()) {
      source->is_missed = source->is_served;
      if (std::exchange(source->is_served, true)) return;
    }
  }
  if (!completes([&] { source->handler(epoll_events); })) {
    source->is_served = false;
    source->owed_events = epoll_events;
    owed_ = true;
    wake_up();
  } else if (source->due) {
    remove(id);
  } else {
    arm_again(id);
  }
}

/**
 * Calls again what ran out of memory, first of all, so that nothing overtakes it; false when
 * nothing did.
 */
bool MainLoop::serve_owed() {
  SourceId id = 0;
  std::uint32_t epoll_events = 0;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto owed = std::find_if(sources_.begin(), sources_.end(), [](const auto &entry) {
      return entry.second->owed_events != 0;
    });
    owed_ = owed != sources_.end();
    if (!owed_) return false;
    id = owed->first;
    epoll_events = std::exchange(owed->second->owed_events, 0);
  }
  // Others may need the processor to give memory back.
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  serve(id, epoll_events);
  return true;
}

void MainLoop::serve_timer() {
  std::function<void()> handler;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto first = timers_.begin();
    if (first != timers_.end() && first->first.first <= std::chrono::steady_clock::now()) {
      handler = std::move(first->second);
      timers_.erase(first);
    }
    set_clock();
    arm(EPOLL_CTL_MOD, kClock, clock_.get(), EPOLLIN);
  }
  if (handler && !completes(handler)) {
    dlog_print(6, "KORVANE_HOST", "a timer ran out of memory");
  }
}

}  // namespace korvane::host

using korvane::host::guarded;
using korvane::host::MainLoop;

int korvane_host_main_loop_run(void) {
  return guarded([] { return MainLoop::instance().run(); });
}

void korvane_host_main_loop_quit(void) {
  guarded([] {
    MainLoop::instance().quit();
    return 0;
  });
}

int korvane_host_main_loop_step(int timeout_ms) {
  return guarded([timeout_ms] { return MainLoop::instance().step(timeout_ms); });
}

int korvane_host_main_loop_call_after(int delay_ms, void (*task)(void *), void *user_data) {
  return guarded([=] {
    if (task == nullptr || delay_ms < 0) return -EINVAL;
    MainLoop::instance().add_timer(std::chrono::milliseconds(delay_ms),
                                   [task, user_data] { task(user_data); });
    return 0;
  });
}

int korvane_host_main_loop_fd(void) {
  return guarded([] { return MainLoop::instance().descriptor(); });
}
