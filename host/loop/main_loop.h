/** The event loop of the workstation platform. */
#ifndef KORVANE_HOST_MAIN_LOOP_H_
#define KORVANE_HOST_MAIN_LOOP_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "process.h"
#include "sockets/unique_fd.h"

namespace korvane::host {

/**
 * An epoll loop.
 *
 * Sources are served one at a time, in the order in which they became ready: data that a peer sent
 * before it disconnected is delivered before the disconnect. Sources may be added and removed from
 * any thread and from inside handlers. A removed source is not called again. A source whose handler
 * is running is not served by a nested step, unless the handler calls change_events.
 *
 * An exception of a handler is logged, and the loop continues. A child made by fork removes nothing
 * from an inherited loop.
 */
class MainLoop {
 public:
  using SourceId = std::uint64_t;

  /** The loop of the process, used by the platform functions. A child made by fork has its own. */
  static MainLoop &instance();
  /** Makes the loop of the process quit, or the next one created. Async-signal-safe. */
  static void quit_instance() noexcept;

  MainLoop();
  MainLoop(const MainLoop &) = delete;
  MainLoop &operator=(const MainLoop &) = delete;
  ~MainLoop();

  /**
   * Calls the handler with the epoll events of a descriptor. The caller keeps the descriptor open.
   */
  SourceId add_descriptor(int descriptor, std::uint32_t epoll_events,
                          std::function<void(std::uint32_t)> handler);
  /** Changes the watched events. The source is served after all sources that are ready now. */
  void change_events(SourceId id, std::uint32_t epoll_events);
  /** Calls the handler once, after the delay. Equal delays are served in the order of the calls. */
  SourceId add_timer(std::chrono::milliseconds delay, std::function<void()> handler);
  /** Removes a source; unknown IDs are ignored. */
  void remove(SourceId id);

  /** Serves sources until quit. Returns 0 or a negated errno value. */
  int run();
  /** May be called from any thread and from signal handlers. */
  void quit() noexcept;
  /**
   * Serves one source. Waits at most timeout_ms; -1: no limit. Returns 1, 0 on timeout, or a
   * negated errno value.
   */
  int step(int timeout_ms);
  int descriptor() const { return epoll_.get(); }
  bool is_ours() const { return mark_.is_ours(); }

 private:
  struct Source {
    int descriptor;
    std::uint32_t epoll_events;
    std::function<void(std::uint32_t)> handler;
  };

  int arm(int operation, SourceId id, const Source &source) const;
  void arm_again(SourceId id);
  void serve(SourceId id, std::uint32_t epoll_events);
  void serve_timer();
  /** Makes the timers' descriptor readable when the first of them is due. */
  void set_clock() const;
  void clear_wake_up() const;

  const ProcessMark mark_;
  UniqueFd epoll_;
  UniqueFd wake_up_;
  UniqueFd clock_;  ///< one descriptor for all timers
  std::atomic<bool> quit_{false};
  std::mutex mutex_;
  SourceId next_id_ = 1;
  SourceId clock_source_ = 0;
  std::map<SourceId, std::shared_ptr<Source>> sources_;
  std::map<std::pair<std::chrono::steady_clock::time_point, SourceId>, std::function<void()>>
      timers_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_MAIN_LOOP_H_
