/** The event loop that everything on a workstation is delivered from. */
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
 * Sources are served one at a time, in the order in which they became ready:
 * what a peer announced before it dropped a connection is delivered before the
 * drop. Sources may be added and removed from any thread and from inside
 * handlers; a removed source is not called again. A source whose handler runs
 * is not served by a nested step, unless the handler calls change_events.
 *
 * What a handler throws is logged, and the loop goes on. In a child made by
 * fork, an inherited loop is left alone: nothing is removed from it.
 */
class MainLoop {
 public:
  using SourceId = std::uint64_t;

  /** The loop of the process, which the platform functions use. A child made by fork has its own.
   */
  static MainLoop &instance();
  /** Ends the loop of the process, or the one that is made later. Signal handlers may call it. */
  static void quit_instance() noexcept;

  MainLoop();
  MainLoop(const MainLoop &) = delete;
  MainLoop &operator=(const MainLoop &) = delete;
  ~MainLoop();

  /** Calls the handler with the epoll events of a descriptor, which the caller keeps open. */
  SourceId add_descriptor(int descriptor, std::uint32_t epoll_events,
                          std::function<void(std::uint32_t)> handler);
  /** Watches for other events, from now on: the source is served behind what is ready already. */
  void change_events(SourceId id, std::uint32_t epoll_events);
  /** Calls the handler once, after the delay; handlers with the same delay in their order. */
  SourceId add_timer(std::chrono::milliseconds delay, std::function<void()> handler);
  /** Forgets a source; an unknown one is ignored. */
  void remove(SourceId id);

  /** Serves sources until quit; 0, or a negated errno value. */
  int run();
  /** Any thread; signal handlers too. */
  void quit() noexcept;
  /** Serves one source, waiting at most timeout_ms (-1: no limit): 1, 0 or a negated errno value.
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
  UniqueFd clock_;  ///< one descriptor for all timers, however many there are
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
