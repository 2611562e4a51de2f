/**
 * @file korvane_svcmgr_client.hpp
 * A client of the device's service manager for C++17 applications. It stays
 * connected, and its requests have handlers and time limits.
 *
 * It is header only, starts no thread and uses korvane_svcmgr.hpp.
 *
 * @code
 * korvane::svcmgr::Client client(korvane::host::call_after);
 * client.connect();
 * auto request = client.request_usable_model_list([](std::error_code error, ModelList models) {
 *     if (error) std::cerr << error.message() << '\n';
 *     else for (const ModelInfo &model : models) std::cout << model.id().value() << '\n';
 * });
 * korvane_host_main_loop_run();
 * @endcode
 *
 * @par Requests
 * A request that is not cancelled ends exactly once. Its handler is called from
 * the main loop, never from inside the call that started the request. It receives
 *
 * - no error, and the answer;
 * - the service manager's error code;
 * - std::errc::timed_out after the time limit, which each progress report
 *   restarts;
 * - #SVCMGR_ERROR_NOT_CONNECTED when the connection over which it was sent is
 *   lost, when Client::disconnect() is called, or without Client::connect();
 * - #SVCMGR_ERROR_PERMISSION_DENIED when the service manager rejects the
 *   connection;
 * - the error of the C function that sends it, or of copying its arguments.
 *
 * While the connection is being made, a request waits for it; its time limit
 * includes this wait. If a request ends early, the service manager continues an
 * update, and later answers are dropped.
 *
 * @par Handlers
 * A handler may be empty. It may do anything, for example start and cancel
 * requests, destroy its own Request, disconnect or destroy the client. An
 * exception that leaves it ends the program, as with std::thread.
 *
 * @par Connection
 * The client stays connected. While the connection cannot be started, it tries
 * again every second. After a loss the library reconnects. A rejected connection
 * stays rejected until the process ends.
 *
 * The library does not report some losses and some connections. The client detects
 * them with korvane_svcmgr_is_being_updated(), which sends no message. It checks
 * at each event, every 100 ms while a request is open or the connection is being
 * made, and every second otherwise. If a connection is lost and made again between
 * two checks, its requests end at their time limit. To detect this at once, call
 * Client::look() after each step of the main loop.
 *
 * Time limits are counted in these steps of 100 ms. A request never ends before its
 * limit. It may end 200 ms late, and later if the main loop does not run meanwhile.
 *
 * @par Limits
 * A process has one client at a time. While it exists, it alone uses
 * korvane_svcmgr_connect(), korvane_svcmgr_disconnect(),
 * korvane_svcmgr_set_update_status_cb(), korvane_svcmgr_ai_register_status_cb()
 * and the functions that remove these callbacks. The application may call all
 * other functions of the C API.
 *
 * If the client disconnects or is destroyed while the connection is being made,
 * the connection is ended as soon as the library reports it. A reconnection after
 * an announced update is not reported, so only a later client ends it.
 *
 * The client stays without a connection in two cases: the service manager never
 * answers, or the library receives the announcement of its launch before the loss
 * of the connection. In the second case it reconnects at the next launch.
 *
 * @par Threads
 * As in the C API: the thread of the application's main loop.
 */
#ifndef KORVANE_SVCMGR_CLIENT_HPP_
#define KORVANE_SVCMGR_CLIENT_HPP_

#include <korvane_svcmgr.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace korvane::svcmgr {

/**
 * A function that calls the task once, after the delay, on the main loop's thread,
 * and never from inside this call. It may throw, and then does not keep the task.
 *
 * If it throws inside a function of the Client, that function changes nothing and
 * passes the exception on. If it throws inside the main loop, where the client
 * schedules its next step, the program ends.
 */
using CallAfter = std::function<void(std::chrono::milliseconds delay, std::function<void()> task)>;

namespace detail {

using Milliseconds = std::chrono::milliseconds;

// NOLINTBEGIN(bugprone-exception-escape): an exception of a handler ends the program.

/** The implementation of the client. Outlives the client if a handler destroys it. */
class Session : public std::enable_shared_from_this<Session> {
 public:
  using State = korvane_svcmgr_connection_state_e;

  /**
   * An open request. The user data of its C callback is a number and not a pointer, since an answer
   * may arrive after the request has ended.
   */
  struct Job {
    std::function<int(void *number)> send;  ///< empty after its call
    std::function<void(std::error_code, ModelList)> finish;
    std::function<void(const Progress &)> progress;
    Milliseconds limit;
    Milliseconds left{};
    std::error_code error{};  ///< ends the request in the next step
  };

  /** The state that exists once in a process. */
  struct Process {
    Session *session = nullptr;
    bool is_rejected = false;
    std::uintptr_t next_number = 1;  ///< of a request; unique among all clients of the process
  };
  SVCMGR_API static Process &process() noexcept {
    static Process process;
    return process;
  }

  explicit Session(CallAfter call_after) : call_after_(std::move(call_after)) {}

  void open() {
    if (process().session != nullptr) throw std::logic_error("there is a client already");
    step_within(kIdleStep);
    process().session = this;
  }

  void close() noexcept {
    process().session = nullptr;
    is_wanted_ = false;
    korvane_svcmgr_disconnect();
    if (update_status_) korvane_svcmgr_unset_update_status_cb();
    if (model_status_) korvane_svcmgr_ai_deregister_status_cb();
    connection_ = nullptr;
    update_status_ = nullptr;
    model_status_ = nullptr;
    std::exchange(jobs_, {});
  }

  std::error_code connect() {
    step_soon();
    step_within(kStep);
    is_wanted_ = true;
    return start_connecting();
  }

  void disconnect() {
    step_soon();
    is_wanted_ = is_connected_ = false;
    for (auto &[number, job] : jobs_) job->error = to_error(SVCMGR_ERROR_NOT_CONNECTED);
    korvane_svcmgr_disconnect();
  }

  bool is_connected() const noexcept { return is_connected_; }

  std::uintptr_t start(Job job) {
    auto shared = std::make_shared<Job>(std::move(job));
    restart_limit(*shared);
    step_soon();
    step_within(kStep);
    return jobs_.emplace(process().next_number++, std::move(shared)).first->first;
  }

  bool is_open(std::uintptr_t number) const noexcept { return jobs_.count(number) != 0; }
  void cancel(std::uintptr_t number) noexcept { jobs_.extract(number); }

  void on_connection(std::function<void(State)> handler) {
    connection_ = share(std::move(handler));
  }

  void on_update_status(std::function<void(korvane_svcmgr_update_status_e)> handler) {
    auto shared = share(std::move(handler));
    check(shared ? korvane_svcmgr_set_update_status_cb(take_update_status, nullptr)
                 : korvane_svcmgr_unset_update_status_cb());
    update_status_ = std::move(shared);
  }

  void on_model_status(std::function<void(korvane_svcmgr_ai_state_e)> handler) {
    auto shared = share(std::move(handler));
    check(shared ? korvane_svcmgr_ai_register_status_cb(take_model_status, nullptr)
                 : korvane_svcmgr_ai_deregister_status_cb());
    model_status_ = std::move(shared);
  }

  /** Checks the connection and serves the requests. */
  void step(Milliseconds elapsed = {}) noexcept {
    if (!is_current()) return;
    const auto self = shared_from_this();
    look();
    keep_connecting(elapsed);
    const std::uintptr_t end = process().next_number;  // new requests are served in the next step
    for (auto it = jobs_.begin(); it != jobs_.end() && it->first < end;) {
      const std::uintptr_t number = it->first;
      serve(number, *it->second, elapsed);
      it = jobs_.upper_bound(number);
    }
    if (is_current()) step_within(next_delay());
  }

  // Callbacks of the C API. An exception of a handler ends the program here.

  static void take_models(int result, korvane_svcmgr_ai_model_list_h list, void *number) noexcept {
    ModelList models(list);
    if (result == SVCMGR_ERROR_NONE && !models) result = SVCMGR_ERROR_OUT_OF_MEMORY;
    if (const auto session = step_current())
      session->finish(reinterpret_cast<std::uintptr_t>(number), to_error(result),
                      std::move(models));
  }

  static void take_progress(int result, korvane_svcmgr_ai_progress_h handle,
                            void *number) noexcept {
    const Progress report(handle);
    if (const auto session = step_current())
      session->report_progress(reinterpret_cast<std::uintptr_t>(number), result, report);
  }

 private:
  template <typename Value>
  using SharedHandler = std::shared_ptr<const std::function<void(Value)>>;

  static constexpr Milliseconds kStep{100};
  static constexpr Milliseconds kIdleStep{1000};
  static constexpr Milliseconds kRetryDelay{1000};

  static void take_connection(int, State state, void *) noexcept {
    if (state == SVCMGR_CONNECTION_REJECTED) process().is_rejected = true;
    if (process().session != nullptr) {
      const auto session = process().session->shared_from_this();
      session->set_connected(false);  // a connection that is reported is a new one
      session->step();
    } else if (state == SVCMGR_CONNECTION_CONNECTED) {
      korvane_svcmgr_disconnect();
    }
  }

  static void take_update_status(korvane_svcmgr_update_status_e status, void *) noexcept {
    if (const auto session = step_current()) call(session->update_status_, status);
  }

  static void take_model_status(int, korvane_svcmgr_ai_state_e state, void *) noexcept {
    if (const auto session = step_current()) call(session->model_status_, state);
  }

  /** Runs a step of the current session and returns the session; null if there is none. */
  static std::shared_ptr<Session> step_current() noexcept {
    if (process().session == nullptr) return nullptr;
    auto session = process().session->shared_from_this();
    session->step();
    return session;
  }

  static std::error_code to_error(int code) noexcept { return {code, error_category()}; }

  template <typename Value>
  static SharedHandler<Value> share(std::function<void(Value)> handler) {
    if (!handler) return nullptr;
    return std::make_shared<const std::function<void(Value)>>(std::move(handler));
  }

  /** Calls a handler, which may be empty and may replace itself. */
  template <typename Value>
  static void call(SharedHandler<Value> handler, Value value) {
    if (handler) (*handler)(value);
  }

  bool is_current() const noexcept { return process().session == this; }

  std::error_code start_connecting() noexcept {
    since_attempt_ = {};
    const int code = korvane_svcmgr_connect(take_connection, nullptr);
    return to_error(code == SVCMGR_ERROR_ALREADY_CONNECTED ? SVCMGR_ERROR_NONE : code);
  }

  /** Detects unreported losses and connections, and ends a connection that is not wanted. */
  void look() {
    bool is_being_updated = false;
    const int code = korvane_svcmgr_is_being_updated(&is_being_updated);
    if (code == SVCMGR_ERROR_NOT_CONNECTED) set_connected(false);
    if (code != SVCMGR_ERROR_NONE) return;
    if (is_wanted_) {
      set_connected(true);
    } else {
      korvane_svcmgr_disconnect();
    }
  }

  void set_connected(bool is_connected) {
    if (is_connected == is_connected_) return;
    is_connected_ = is_connected;
    since_attempt_ = {};
    for (auto &[number, job] : jobs_) {
      if (!job->send) job->error = to_error(SVCMGR_ERROR_NOT_CONNECTED);
    }
    call(connection_, is_connected ? SVCMGR_CONNECTION_CONNECTED : SVCMGR_CONNECTION_DISCONNECTED);
  }

  /** Tries to connect, or reports a rejection. */
  void keep_connecting(Milliseconds elapsed) {
    if (!is_wanted_ || is_connected_) return;
    if (process().is_rejected) {
      if (std::exchange(is_rejection_reported_, true)) return;
      call(connection_, SVCMGR_CONNECTION_REJECTED);
    } else if ((since_attempt_ += elapsed) >= kRetryDelay) {
      start_connecting();
    }
  }

  void serve(std::uintptr_t number, Job &job, Milliseconds elapsed) {
    job.left -= elapsed;
    if (!job.error && job.left <= Milliseconds::zero())
      job.error = std::make_error_code(std::errc::timed_out);
    if (!job.error && job.send) send(number, job);
    if (job.error) finish(number, job.error, ModelList(nullptr));
  }

  /** Sends a request, unless the connection is still being made. */
  void send(std::uintptr_t number, Job &job) {
    if (is_connected_) {
      const auto send = std::exchange(job.send, nullptr);
      // NOLINTNEXTLINE(performance-no-int-to-ptr): never used as a pointer
      job.error = to_error(send(reinterpret_cast<void *>(number)));
    } else if (!is_wanted_) {
      job.error = to_error(SVCMGR_ERROR_NOT_CONNECTED);
    } else if (process().is_rejected) {
      job.error = to_error(SVCMGR_ERROR_PERMISSION_DENIED);
    }
  }

  void report_progress(std::uintptr_t number, int result, const Progress &report) {
    const auto found = jobs_.find(number);
    if (found == jobs_.end()) return;
    const std::shared_ptr<Job> job = found->second;
    restart_limit(*job);
    int state = 0;
    if (report) {
      korvane_svcmgr_ai_progress_get_state(report.get(), &state);
      if (job->progress) job->progress(report);
    }
    if (result == SVCMGR_ERROR_NONE && state == SVCMGR_AI_STATE_FAILED)
      result = SVCMGR_ERROR_INVALID_OPERATION;
    if (result != SVCMGR_ERROR_NONE || state == SVCMGR_AI_STATE_COMPLETED)
      finish(number, to_error(result), ModelList(nullptr));
  }

  void finish(std::uintptr_t number, std::error_code error, ModelList models) {
    const auto job = jobs_.extract(number);
    if (job && job.mapped()->finish) job.mapped()->finish(error, std::move(models));
  }

  /** Adds a step, since the current step counts in full although a part of it has passed. */
  static void restart_limit(Job &job) noexcept {
    job.left = std::min(job.limit, Milliseconds::max() - kStep) + kStep;
  }

  Milliseconds next_delay() const noexcept {
    const bool is_awaited = is_wanted_ && !is_connected_ && !process().is_rejected;
    return is_awaited || !jobs_.empty() ? kStep : kIdleStep;
  }

  /** Schedules a step that counts time; replaces a scheduled step that is later. */
  void step_within(Milliseconds delay) {
    if (pending_ != Milliseconds::zero() && pending_ <= delay) return;
    call_after_(delay, [session = weak_from_this(), delay, ticket = ticket_ + 1]() noexcept {
      const auto self = session.lock();
      if (!self || !self->is_current() || self->ticket_ != ticket) return;
      self->pending_ = {};
      self->step_within(self->next_delay());
      self->step(delay);
    });
    ++ticket_;
    pending_ = delay;
  }

  /** Schedules a step without a delay, which counts no time. */
  void step_soon() {
    if (is_step_due_) return;
    call_after_(Milliseconds::zero(), [session = weak_from_this()]() noexcept {
      const auto self = session.lock();
      if (!self) return;
      self->is_step_due_ = false;
      self->step();
    });
    is_step_due_ = true;
  }

  const CallAfter call_after_;
  SharedHandler<State> connection_;
  SharedHandler<korvane_svcmgr_update_status_e> update_status_;
  SharedHandler<korvane_svcmgr_ai_state_e> model_status_;
  std::map<std::uintptr_t, std::shared_ptr<Job>> jobs_;
  bool is_wanted_ = false;
  bool is_connected_ = false;
  bool is_rejection_reported_ = false;
  Milliseconds since_attempt_{};
  Milliseconds pending_{};  ///< the delay of the scheduled step that counts time; 0 inside it
  unsigned ticket_ = 0;     ///< identifies that step
  bool is_step_due_ = false;
};

// NOLINTEND(bugprone-exception-escape)

}  // namespace detail

/** A started request. It can be moved. Destroying or assigning to it cancels the request. */
class [[nodiscard]] Request {
 public:
  /** No request. */
  Request() = default;
  ///@{
  /** Moves a request. Assignment cancels the request that this object had. */
  Request(Request &&other) noexcept = default;
  Request &operator=(Request &&other) noexcept {
    Request before(std::move(other));
    std::swap(session_, before.session_);
    std::swap(number_, before.number_);
    return *this;
  }
  ///@}
  ~Request() { cancel(); }

  /** Ends the request; no handler is called afterwards. The service manager continues an update. */
  void cancel() noexcept {
    const auto session = std::exchange(session_, {}).lock();
    if (session) session->cancel(number_);
  }

  /** Lets the request continue without this object. */
  void detach() noexcept { session_.reset(); }

  /** Whether a handler will still be called; false inside the last one. */
  bool is_open() const noexcept {
    const auto session = session_.lock();
    return session && session->is_open(number_);
  }

 private:
  friend class Client;
  Request(std::weak_ptr<detail::Session> session, std::uintptr_t number) noexcept
      : session_(std::move(session)), number_(number) {}

  std::weak_ptr<detail::Session> session_;
  std::uintptr_t number_ = 0;
};

/** The application's client. The description of this file states its behaviour. */
class Client {
 public:
  /** Receives the answer to a request for models. With an error, the list may have no handle. */
  using ModelsHandler = std::function<void(std::error_code, ModelList)>;
  /** Receives every report of an update, including the last one and the report of a failure. */
  using ProgressHandler = std::function<void(const Progress &)>;
  /** Receives the end of an update: no error, the error, or #SVCMGR_ERROR_INVALID_OPERATION. */
  using EndHandler = std::function<void(std::error_code)>;

  /** A request without a time limit. */
  static constexpr std::chrono::milliseconds kNoLimit = std::chrono::milliseconds::max();
  /** The time limit of a request for models, from its start to its answer. */
  static constexpr std::chrono::milliseconds kListLimit{30000};
  /** The time limit of an update: the longest time between two reports. */
  static constexpr std::chrono::milliseconds kSilenceLimit{60000};

  /** Creates an unconnected client. @throws std::logic_error the process already has a client */
  explicit Client(CallAfter call_after)
      : session_(std::make_shared<detail::Session>(std::move(call_after))) {
    session_->open();
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  /** Disconnects. No handler is called afterwards. Must run before main() ends. */
  ~Client() { session_->close(); }

  /** Sets the handler that is called when the connection was made, lost or rejected. */
  void on_connection(std::function<void(korvane_svcmgr_connection_state_e)> handler) {
    session_->on_connection(std::move(handler));
  }

  /**
   * Connects, and stays connected.
   *
   * @return the error of the first attempt; the client repeats a failed one
   */
  std::error_code connect() { return session_->connect(); }

  /** Ends the connection and all requests. The connection handler is not called. */
  void disconnect() { session_->disconnect(); }

  /** Whether there is a connection, as far as the client knows. */
  bool is_connected() const noexcept { return session_->is_connected(); }

  /** Checks the connection now and calls the handlers of what has changed. */
  void look() { session_->step(); }

  ///@{
  /** See the function of the C API that has this name. Arguments are copied. */
  Request request_usable_model_list(ModelsHandler handler,
                                    std::chrono::milliseconds limit = kListLimit) {
    const auto send = [](void *number) {
      return korvane_svcmgr_ai_request_usable_model_list(Session::take_models, number);
    };
    return start(send, std::move(handler), nullptr, limit);
  }
  Request request_usable_model_list_with_description(ModelsHandler handler,
                                                     std::chrono::milliseconds limit = kListLimit) {
    const auto send = [](void *number) {
      return korvane_svcmgr_ai_request_usable_model_list_with_description(Session::take_models,
                                                                          number);
    };
    return start(send, std::move(handler), nullptr, limit);
  }
  Request request_usable_model_list_with_category(const std::string &category,
                                                  ModelsHandler handler,
                                                  std::chrono::milliseconds limit = kListLimit) {
    const auto send = [category](void *number) {
      return korvane_svcmgr_ai_request_usable_model_list_with_category(Session::take_models,
                                                                       category.c_str(), number);
    };
    return start(send, std::move(handler), nullptr, limit);
  }
  Request request_model_version_list(const ModelInfo &model, ModelsHandler handler,
                                     std::chrono::milliseconds limit = kListLimit) {
    const auto copy = [&model] {
      ModelList models;
      models.add(model);
      return models.at(0);
    };
    const auto function = korvane_svcmgr_ai_request_model_version_list;
    return start(sending(copy, function, Session::take_models), std::move(handler), nullptr, limit);
  }
  Request request_to_update(const ModelList &models, ProgressHandler progress, EndHandler end,
                            std::chrono::milliseconds limit = kSilenceLimit) {
    return start_work(korvane_svcmgr_ai_request_to_update, models, std::move(progress),
                      std::move(end), limit);
  }
  Request request_to_uninstall(const ModelList &models, ProgressHandler progress, EndHandler end,
                               std::chrono::milliseconds limit = kSilenceLimit) {
    return start_work(korvane_svcmgr_ai_request_to_uninstall, models, std::move(progress),
                      std::move(end), limit);
  }
  ///@}

  ///@{
  /**
   * Sets the handler that is called for every status, connected or not. An empty handler ends the
   * calls.
   *
   * @throws std::system_error the error of korvane_svcmgr_set_update_status_cb() or
   * korvane_svcmgr_ai_register_status_cb(); nothing has changed
   */
  void on_update_status(std::function<void(korvane_svcmgr_update_status_e)> handler) {
    session_->on_update_status(std::move(handler));
  }
  void on_model_status(std::function<void(korvane_svcmgr_ai_state_e)> handler) {
    session_->on_model_status(std::move(handler));
  }
  ///@}

 private:
  using Session = detail::Session;
  using Send = std::function<int(void *number)>;

  Request start(Send send, ModelsHandler finish, ProgressHandler progress,
                std::chrono::milliseconds limit) {
    const std::uintptr_t number =
        session_->start({std::move(send), std::move(finish), std::move(progress), limit});
    return Request(session_, number);
  }

  template <typename Function>
  Request start_work(Function function, const ModelList &models, ProgressHandler progress,
                     EndHandler end, std::chrono::milliseconds limit) {
    const auto copy = [&models] {
      ModelList copies;
      for (const ModelInfo &model : models) copies.add(model);
      return copies;
    };
    const auto finish = [end = std::move(end)](std::error_code error, const ModelList &) {
      if (end) end(error);
    };
    return start(sending(copy, function, Session::take_progress), finish, std::move(progress),
                 limit);
  }

  /** Returns a call of the function with a copy of its argument, or the error of making the copy.
   */
  template <typename Copy, typename Function, typename Callback>
  static Send sending(Copy copy, Function function, Callback callback) {
    try {
      return [argument = std::make_shared<decltype(copy())>(copy()), function,
              callback](void *number) { return function(argument->get(), callback, number); };
    } catch (const std::system_error &error) {
      return [code = error.code().value()](void *) { return code; };
    }
  }

  const std::shared_ptr<Session> session_;
};

}  // namespace korvane::svcmgr

#endif  // KORVANE_SVCMGR_CLIENT_HPP_
