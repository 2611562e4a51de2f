/**
 * @file korvane_host.hpp
 * The main loop of the workstation platform, for C++17. Header only.
 */
#ifndef KORVANE_HOST_HPP_
#define KORVANE_HOST_HPP_

#include <cerrno>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>

#include "korvane_host.h"

namespace korvane::host {

/**
 * Calls a task once from inside the main loop, after a delay. A delay of 0 posts work to the loop.
 * The task is destroyed after its call. May be called from any thread.
 *
 * @throws std::system_error when the task cannot be added: EINVAL for an empty task or a delay that
 *         is negative or exceeds an int of milliseconds. The task is destroyed then.
 */
inline void call_after(std::chrono::milliseconds delay, std::function<void()> task) {
  using Task = std::function<void()>;
  const bool is_valid = task && delay.count() <= std::numeric_limits<int>::max();
  auto kept = std::make_unique<Task>(std::move(task));
  const auto call = [](void *user_data) {
    const std::unique_ptr<Task> due(static_cast<Task *>(user_data));
    (*due)();
  };
  const int result =
      is_valid && delay.count() >= 0
          ? korvane_host_main_loop_call_after(static_cast<int>(delay.count()), call, kept.get())
          : -EINVAL;
  if (result != 0) throw std::system_error(-result, std::generic_category(), "call_after");
  static_cast<void>(kept.release());
}

}  // namespace korvane::host

#endif  // KORVANE_HOST_HPP_
