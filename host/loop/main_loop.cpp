#include "loop/main_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "deadline.h"
#include "guard.h"
#include "korvane_host.h"

namespace korvane::host {

namespace {

// Never destroyed: handles of the application may still refer to a loop at process exit. After a
// fork, the loop of the parent stays reachable through `inherited`.
struct ProcessLoop {
  MainLoop loop;
  ProcessLoop *inherited = nullptr;
};

std::atomic<ProcessLoop *> current{nullptr};
/** The process in which quit was called before a loop existed, or 0. */
std::atomic<pid_t> early_quit{0};

UniqueFd checked(int descriptor, const char *what) {
  UniqueFd result(beyond_standard_streams(descriptor));
  if (!result) fail(errno, what);
  return result;
}

template <typename Handler, typename... Arguments>
void call(const Handler &handler, Arguments... arguments) {
  try {
    handler(arguments...);
  } catch (const std::exception &exception) {
    dlog_print(6, "KORVANE_HOST", "an event was not handled: %s", exception.what());
  } catch (...) {
    dlog_print(6, "KORVANE_HOST", "an event was not handled");
  }
}

}  // namespace

MainLoop &MainLoop::instance() {
  ProcessLoop *found = current;
  if (found != nullptr && found->loop.is_ours()) return found->loop;
  auto fresh = std::make_unique<ProcessLoop>();
  fresh->inherited = found;
  if (current.compare_exchange_strong(found, fresh.get())) found = fresh.release();
  if (early_quit.exchange(0) == getpid()) found->loop.quit();
  return found->loop;
}

void MainLoop::quit_instance() noexcept {
  early_quit = getpid();
  ProcessLoop *const found = current;
  if (found == nullptr || !found->loop.is_ours()) return;
  if (early_quit.exchange(0) != 0) found->loop.quit();
}

MainLoop::MainLoop()
    : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      wake_up_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      clock_(
          checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {
  add_descriptor(wake_up_.get(), EPOLLIN, [this](std::uint32_t) { clear_wake_up(); });
  clock_source_ = add_descriptor(clock_.get(), EPOLLIN, [this](std::uint32_t) { serve_timer(); });
}

MainLoop::~MainLoop() = default;

MainLoop::SourceId MainLoop::add_descriptor(int descriptor, std::uint32_t epoll_events,
                                            std::function<void(std::uint32_t)> handler) {
  auto source = std::make_shared<Source>(Source{descriptor, epoll_events, std::move(handler)});
  const std::lock_guard<std::mutex> guard(mutex_);
  const SourceId id = next_id_++;
  const auto entry = sources_.emplace(id, std::move(source)).first;
  if (arm(EPOLL_CTL_ADD, id, *entry->second) != 0) {
    const int error = errno;
    sources_.erase(entry);
    fail(error, "epoll_ctl");
  }
  return id;
}

// Removes the source from epoll and adds it again; only this gives up its position in the ready
// list.
void MainLoop::change_events(SourceId id, std::uint32_t epoll_events) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto entry = sources_.find(id);
  if (entry == sources_.end()) return;
  Source &source = *entry->second;
  source.epoll_events = epoll_events;
  arm(EPOLL_CTL_DEL, id, source);
  arm(EPOLL_CTL_ADD, id, source);
}

/**
 * Arms a source for one event. Otherwise the source would keep its position in the ready list while
 * it is served, and its next event would overtake earlier events of other sources.
 */
int MainLoop::arm(int operation, SourceId id, const Source &source) const {
  epoll_event event = {};
  event.events = source.epoll_events | EPOLLONESHOT;
  event.data.u64 = id;
  return epoll_ctl(epoll_.get(), operation, source.descriptor, &event);
}

void MainLoop::arm_again(SourceId id) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto source = sources_.find(id);
  if (source != sources_.end()) arm(EPOLL_CTL_MOD, id, *source->second);
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

void MainLoop::remove(SourceId id) {
  if (!is_ours()) return;
  // Destroyed after the lock is released, since handlers may own objects that use the loop.
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
    const int result = step(kNoLimit);
    if (result < 0) return result;
  }
  clear_wake_up();
  return 0;
}

void MainLoop::quit() noexcept {
  const int callers_errno = errno;
  quit_ = true;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wake_up_.get(), &one, sizeof(one));
  errno = callers_errno;
}

void MainLoop::clear_wake_up() const {
  std::uint64_t value = 0;
  [[maybe_unused]] const ssize_t size = read(wake_up_.get(), &value, sizeof(value));
}

int MainLoop::step(int timeout_ms) {
  const Deadline deadline(timeout_ms);
  epoll_event event = {};
  int count = 0;
  do {
    count = epoll_wait(epoll_.get(), &event, 1, deadline.left_ms());
  } while (count < 0 && errno == EINTR);
  if (count < 0) return -errno;
  if (count == 1) serve(event.data.u64, event.events);
  return count;
}

void MainLoop::serve(SourceId id, std::uint32_t epoll_events) {
  std::shared_ptr<Source> source;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto entry = sources_.find(id);
    if (entry == sources_.end()) return;
    source = entry->second;
  }
  call(source->handler, epoll_events);
  arm_again(id);
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
  }
  change_events(clock_source_, EPOLLIN);  // a handler may wait for another timer
  if (handler) call(handler);
}

}  // namespace korvane::host

using korvane::host::guarded;
using korvane::host::MainLoop;

int korvane_host_main_loop_run(void) {
  return guarded([] { return MainLoop::instance().run(); });
}

void korvane_host_main_loop_quit(void) {
  MainLoop::quit_instance();
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
