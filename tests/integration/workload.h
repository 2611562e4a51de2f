/** An application that asks for everything at random, and keeps account of what it is told. */
#ifndef KORVANE_TESTS_WORKLOAD_H_
#define KORVANE_TESTS_WORKLOAD_H_

#include <cstddef>
#include <list>
#include <random>

#include "korvane_svcmgr.h"

/**
 * What callbacks promise is checked as they come: an open request is answered once, a job has one
 * end and nothing behind it, a connection that is lost answers nothing any more, and connections
 * are told of as made and lost in turn.
 */
class Workload {
 public:
  explicit Workload(unsigned seed);
  Workload(const Workload &) = delete;
  Workload &operator=(const Workload &) = delete;
  ~Workload();

  /** Starts a connection. */
  void connect();
  void disconnect();

  /** A number below the limit. */
  unsigned random(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  /** One call of the application, or a few turns of its main loop. */
  void act();
  void act(unsigned times);
  void request_list();
  void request_job();

  /** Sees whether the library has lost, or made, a connection. To be called after every turn. */
  void note_connection();

  bool told_connected() const { return told_connected_; }
  std::size_t connections() const { return connections_; }  ///< made so far, told of or not
  std::size_t losses() const { return losses_; }            ///< of connections, told of
  std::size_t open() const;                                 ///< requests to be answered yet
  std::size_t answers() const { return answers_; }
  std::size_t statuses() const { return statuses_; }  ///< of models and of agents
  /** Releases the requests that are answered or lost: nothing may come for them any more. */
  void forget();

  /** Left out when the service is to update itself: the two are one state of the library. */
  bool updates_agents = true;

 private:
  struct Request {
    Workload &owner;
    bool open;
  };

  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data);
  static void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data);
  static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *user_data);
  static void on_update(korvane_svcmgr_update_status_e status, void *user_data);
  static void on_status(int result, korvane_svcmgr_ai_state_e state, void *user_data);

  /** Sends a request, of which user data is its account. */
  template <typename Send>
  void request(Send send);
  void lose_requests();

  std::mt19937 random_;
  std::list<Request> requests_;
  bool connected_ = false;
  bool told_connected_ = false;
  std::size_t connections_ = 0;
  std::size_t losses_ = 0;
  std::size_t answers_ = 0;
  std::size_t statuses_ = 0;
};

#endif  // KORVANE_TESTS_WORKLOAD_H_
