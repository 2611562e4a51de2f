// An application that makes random calls while its service manager is killed, stopped, updated and
// sends many events.
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <list>
#include <random>

#include "events/event_publisher.h"
#include "korvane_host.h"
#include "korvane_svcmgr.hpp"
#include "service_fixture.h"

namespace {

using korvane::host::EventBundle;
using korvane::host::publish_event;
using korvane::svcmgr::ModelInfo;
using korvane::svcmgr::ModelList;
using korvane::svcmgr::Progress;
using testing::AnyOf;

unsigned number_from(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

std::ptrdiff_t descriptors_of(pid_t process) {
  const std::string folder = "/proc/" + std::to_string(process) + "/fd";
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

/**
 * Makes random calls. The callbacks check their contract: an open request is answered once, a job
 * ends once and reports nothing afterwards, a lost connection answers no request, and connect and
 * disconnect are reported alternately.
 */
class FaultsTest : public ServiceTest {
 protected:
  FaultsTest() {
    const unsigned seed = number_from("KORVANE_SEED", 1);
    std::cout << "KORVANE_SEED=" << seed << std::endl;
    dice_.seed(seed);
    korvane_svcmgr_ai_register_status_cb(on_status, this);
  }
  ~FaultsTest() override { korvane_svcmgr_ai_deregister_status_cb(); }

  void SetUp() override {
    connect();
    act(100);  // objects created once, at first use, are not leaks
    drain();
    reconnect();
    own_first_ = own_;
    service_first_ = descriptors_of(emulator_.pid());
  }

  unsigned random(unsigned limit) { return static_cast<unsigned>(dice_() % limit); }

  // The application.

  /** Makes calls, and runs the main loop between them. */
  void act(unsigned times) {
    for (; times > 0; --times) {
      char *license = nullptr;
      switch (random(4)) {
        case 0:
          request_list();
          break;
        case 1:
          request_job();
          break;
        case 2:
          expect_documented(korvane_svcmgr_get_license_fulltext(&license));
          std::free(license);
          break;
        default:
          korvane_host_main_loop_step(0);
      }
      note_connection();
    }
  }
  void request_list() {
    Request &request = requests_.emplace_back(Request{*this});
    sent(request, korvane_svcmgr_ai_request_usable_model_list(on_list, &request));
  }
  void request_job() {
    ModelInfo model;
    model.set_id("vision.detect");
    ModelList models;
    models.add(model);
    Request &request = requests_.emplace_back(Request{*this});
    sent(request, korvane_svcmgr_ai_request_to_update(models.get(), on_progress, &request));
  }
  std::ptrdiff_t open_requests() const {
    return std::count_if(requests_.begin(), requests_.end(), [](auto &each) { return each.open; });
  }
  void connect() {
    EXPECT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE);
    ASSERT_TRUE(until([this] { return reported_connected_; }));
  }
  /** Makes a new connection, and notes what the application holds without one. */
  void reconnect() {
    EXPECT_EQ(korvane_svcmgr_disconnect(), SVCMGR_ERROR_NONE);
    reported_connected_ = false;
    note_connection();
    own_ = {descriptors_of(getpid()), mallinfo2().uordblks};
    connect();
  }
  bool until(const std::function<bool()> &condition) {
    const auto holds = [&] {
      note_connection();
      return condition();
    };
    return run_until(holds, 10);
  }
  /** Waits until every request is answered and all work is done. */
  void drain() {
    ASSERT_TRUE(until([this] { return open_requests() == 0; }));
    settle();
    requests_.clear();
  }
  /** Application and service hold what they held at first, and both work. */
  void expect_nothing_left_behind() {
    constexpr std::size_t kLeeway = 16 << 10;  // buffers that grew, not one entry for each request
    drain();
    reconnect();
    EXPECT_EQ(own_.descriptors, own_first_.descriptors);
    EXPECT_LE(own_.heap, own_first_.heap + kLeeway);
    EXPECT_TRUE(until([this] { return descriptors_of(emulator_.pid()) <= service_first_; }));
    const std::size_t answers = answers_;
    request_list();
    drain();
    EXPECT_EQ(answers_, answers + 1);
  }

  // Faults of the service. Each function returns when the application is connected again.

  void kill_and_launch() {
    lose_and_return([this] { emulator_.send_signal(SIGKILL); }, [this] { start_emulator(); });
  }
  void drop_and_announce() {
    lose_and_return([this] { control({"drop"}); }, [this] { control({"announce", "Launch"}); });
  }
  void stop_and_continue() {
    emulator_.stop();
    for (unsigned count = random(50); count > 0; --count) request_list();
    const auto waker = std::async([this] { emulator_.send_signal(SIGCONT); });
    int level = 0;
    EXPECT_EQ(korvane_svcmgr_get_agent_api_level(&level), SVCMGR_ERROR_NONE);
  }
  /** Announced updates of the service under load, which are not reported. */
  void update_service(unsigned rounds) {
    const std::size_t losses = losses_, wanted = connections_ + rounds;
    ChildProcess update;
    update.start(control_command({"update", "--count", std::to_string(rounds)}));
    ASSERT_TRUE(until([&] {
      act(1);
      return connections_ >= wanted;
    }));
    EXPECT_EQ(update.wait(), 0);
    EXPECT_EQ(connections_, wanted);
    EXPECT_EQ(losses_, losses);
    // The next update request makes the library report connections again.
    EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
    settle();
  }
  /** Known events, which are reported, between unknown ones. */
  void flood() {
    drain();
    const std::size_t wanted = statuses_ + 300;
    const std::string prefix = "event." SVCMGR_APP_ID ".";
    EventBundle known, unknown;
    known.set_string("COMPLETED", "completed");
    unknown.set_string("Junk", std::string(1000, 'x'));
    for (std::size_t sent = statuses_; sent < wanted; ++sent) {
      EXPECT_EQ(publish_event(prefix + "model_status", known).reached, 1U);
      for (const char *name : {"model_status", "update_status", "agent_status"}) {
        publish_event(prefix + name, unknown);
      }
    }
    EXPECT_TRUE(until([&] { return statuses_ == wanted; }));
  }

  std::size_t connections_ = 0;  ///< made so far, whether reported or not
  std::size_t losses_ = 0;       ///< reported so far
  std::size_t answers_ = 0;

 private:
  /** The user data of a request. */
  struct Request {
    FaultsTest &owner;
    bool open = true;
  };
  struct Holdings {
    std::ptrdiff_t descriptors;
    std::size_t heap;
  };

  /** Expects a documented result, with or without a service. */
  static void expect_documented(int result) {
    EXPECT_THAT(result, AnyOf(SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED,
                              SVCMGR_ERROR_INVALID_OPERATION));
  }
  static void sent(Request &request, int result) {
    expect_documented(result);
    request.open = request.open && result == SVCMGR_ERROR_NONE;
  }
  /** Detects a lost or a new connection. Must be called after every turn of the loop. */
  void note_connection() {
    bool updating = false;
    const bool connected = korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE;
    if (!connected_ && connected) ++connections_;
    if (connected_ && !connected) {
      for (Request &request : requests_) request.open = false;
    }
    connected_ = connected;
  }
  template <typename Lose, typename Launch>
  void lose_and_return(Lose lose, Launch launch) {
    const std::size_t losses = losses_;
    lose();
    act(random(4));  // before the loss is noticed
    ASSERT_TRUE(until([&] { return losses_ > losses; }));
    launch();
    ASSERT_TRUE(until([this] { return reported_connected_; }));
    EXPECT_EQ(losses_, losses + 1);
  }

  static void on_connection(int, korvane_svcmgr_connection_state_e state, void *user_data) {
    auto &self = *static_cast<FaultsTest *>(user_data);
    const bool connected = state == SVCMGR_CONNECTION_CONNECTED;
    EXPECT_NE(std::exchange(self.reported_connected_, connected), connected);
    if (!connected) ++self.losses_;
    self.note_connection();
  }
  static void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
    EXPECT_EQ(result, SVCMGR_ERROR_NONE);
    answered(user_data, static_cast<bool>(ModelList(list)));
  }
  static void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *user_data) {
    answered(user_data, Progress(progress).state() != SVCMGR_AI_STATE_START);
  }
  static void answered(void *user_data, bool is_last) {
    auto &request = *static_cast<Request *>(user_data);
    EXPECT_TRUE(request.open) << "answered twice, or after the connection";
    request.open = !is_last;
    request.owner.answers_ += is_last ? 1 : 0;
  }
  static void on_status(int, korvane_svcmgr_ai_state_e, void *user_data) {
    ++static_cast<FaultsTest *>(user_data)->statuses_;
  }

  std::mt19937 dice_;
  std::list<Request> requests_;
  std::size_t statuses_ = 0;  ///< of models
  bool connected_ = false;
  bool reported_connected_ = false;
  Holdings own_ = {}, own_first_ = {};
  std::ptrdiff_t service_first_ = 0;
};

TEST_F(FaultsTest, KilledAtRandomPoints) {
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    act(random(20));
    kill_and_launch();
  }
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, UpdatedAHundredTimesUnderLoad) {
  update_service(100);
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, UpdatedWhileTheApplicationStandsStill) {
  for (int round = 0; round < 3; ++round) {
    const std::size_t wanted = connections_ + 1;
    control({"update"});  // the main loop is not stepped meanwhile
    EXPECT_TRUE(until([&] { return connections_ == wanted; }));
    EXPECT_EQ(losses_, 0U);
  }
}

TEST_F(FaultsTest, TwoThousandOpenRequests) {
  const rlimit few = {256, 256};  // a request costs the service no descriptor
  ASSERT_EQ(prlimit(emulator_.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
  for (int i = 0; i < 1000; ++i) {
    request_job();
    request_list();
  }
  EXPECT_EQ(open_requests(), 2000);
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, FloodOfEvents) {
  for (int round = 0; round < 17; ++round) flood();
  expect_nothing_left_behind();
}

/** All faults in random order, for KORVANE_SOAK_SECONDS. */
TEST_F(FaultsTest, Soak) {
  const std::function<void()> faults[] = {
      [this] { kill_and_launch(); },
      [this] { stop_and_continue(); },
      [this] { drop_and_announce(); },
      [this] { update_service(1 + random(3)); },
      [this] { flood(); },
  };
  const auto now = std::chrono::steady_clock::now;
  const auto end = now() + std::chrono::seconds(number_from("KORVANE_SOAK_SECONDS", 3));
  unsigned rounds = 0;
  for (; now() < end && !HasFailure(); ++rounds) {
    const unsigned fault = random(std::size(faults));
    SCOPED_TRACE(fault);
    act(50 + random(200));
    faults[fault]();
    expect_nothing_left_behind();
  }
  std::cout << rounds << " faults, " << connections_ << " connections, " << losses_ << " losses, "
            << answers_ << " answers" << std::endl;
}

}  // namespace
