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

#include "sockets/unique_fd.h"

namespace korvane::host {

/**
 * An epoll loop.
 *
 * Sources are served one at a time, in the order in which they became ready:
 * what a peer announced before it dropped a connection is delivered before the
 * drop. Sources may be added and removed from any thread and from inside
 * handlers; a removed source is not called any more. A source whose handler
 * runs is not served again, by a nested step either, until the handler returns.
 *
 * A handler or task that runs out of memory (std::bad_alloc) is called again
 * before anything else is served; any other exception is logged.
 */
class MainLoop {
 public:
  using SourceId = std::uint64_t;

  /**
   * The loop of the process, which the platform functions use. A child made by fork has one of its
   * own: it would share the descriptors of an inherited one with its parent.
   */
  static MainLoop &instance();

  MainLoop();
  MainLoop(const MainLoop &) = delete;
  MainLoop &operator=(const MainLoop &) = delete;
  ~MainLoop();

  /**
   * Calls the handler with the epoll events of a descriptor, which stays its owner's. With EPOLLET
   * among them the handler takes all that has come, or asks for another turn by change_events.
   */
  SourceId add_descriptor(int descriptor, std::uint32_t epoll_events,
                          std::function<void(std::uint32_t)> handler);
  void change_events(SourceId id, std::uint32_t epoll_events);
  /** Calls the handler once, after the delay. */
  SourceId add_timer(std::chrono::milliseconds delay, std::function<void()> handler);
  /** Calls the task once, from the loop; tasks in the order in which they were posted. */
  SourceId post(std::function<void()> task);
  /** Forgets a source; an unknown one is ignored. */
  void remove(SourceId id);

  /** Serves sources until quit; 0, or a negated errno value. */
  int run();
  /** Any thread; signal handlers too. */
  void quit();
  /** Serves one source, waiting at most timeout_ms (-1: no limit): 1, 0 or a negated errno value.
   */
  int step(int timeout_ms);
  int descriptor() const { return epoll_.get(); }

 private:
  struct Source {
    int descriptor;
    std::uint32_t epoll_events;
    UniqueFd due;  ///< set for a task, which is served once
    std::function<void(std::uint32_t)> handler;
    std::uint32_t owed_events = 0;  ///< set while the handler is to be called again
    bool is_served = false;
    bool is_missed = false;  ///< more came while it was served, and a nested step passed it by

    bool is_armed_for_good() const;
  };

  /** Makes the loop's descriptor readable, and unreadable again. */
  void wake_up() const;
  void clear_wake_up();
  SourceId add(int descriptor, std::uint32_t epoll_events, UniqueFd due,
               std::function<void(std::uint32_t)> handler);

  int arm(int operation, SourceId id, int descriptor, std::uint32_t epoll_events) const;
  /** Ends a turn. */
  void arm_again(SourceId id);
  void serve(SourceId id, std::uint32_t epoll_events);
  bool serve_owed();
  void serve_timer();
  /** Makes the timers' descriptor readable when the first of them is due. */
  void set_clock() const;

  UniqueFd epoll_;
  UniqueFd wake_up_;
  UniqueFd clock_;  ///< one descriptor for all timers, however many there are
  std::atomic<bool> quit_{false};
  bool owed_ = false;  ///< whether a source may be owed something
  std::mutex mutex_;
  SourceId next_id_;
  std::map<SourceId, std::shared_ptr<Source>> sources_;
  std::map<std::pair<std::chrono::steady_clock::time_point, SourceId>, std::function<void()>>
      timers_;
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_MAIN_LOOP_H_
