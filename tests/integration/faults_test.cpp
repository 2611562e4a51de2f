// A running application while its service manager is killed, stopped, updated and sends many
// events.
#include <gmock/gmock.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
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

unsigned number_from(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

/** The descriptors of a process, and the bytes that this one has allocated. */
struct Holdings {
  explicit Holdings(const std::string &process = "self")
      : descriptors(
            std::distance(std::filesystem::directory_iterator("/proc/" + process + "/fd"), {})),
        heap(mallinfo2().uordblks) {}
  std::ptrdiff_t descriptors;
  std::size_t heap;
};

/**
 * An application that makes random calls. Its callbacks check their contract: an open request is
 * answered once, a job ends once and reports nothing afterwards, a lost connection answers no
 * request, and connect and disconnect are reported alternately.
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
    // Objects created once, at first use, are not leaks.
    connect();
    act(100);
    drain();
    at_first_ = reconnect();
    service_at_first_ = service_descriptors();
  }

  unsigned random(unsigned limit) { return static_cast<unsigned>(dice_() % limit); }

  /** Makes calls of the application and runs its main loop between them. */
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
    request([](Request *account) {
      return korvane_svcmgr_ai_request_usable_model_list(on_list, account);
    });
  }
  void request_job() {
    ModelInfo model;
    model.set_id("vision.detect");
    ModelList models;
    models.add(model);
    request([&](Request *account) {
      return korvane_svcmgr_ai_request_to_update(models.get(), on_progress, account);
    });
  }

  bool until(const std::function<bool()> &condition) {
    const auto holds = [&] {
      note_connection();
      return condition();
    };
    return run_until(holds, 10);
  }
  void connect() {
    EXPECT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE);
    ASSERT_TRUE(until([this] { return told_connected_; }));
  }
  /** Waits until every request is answered and all work is done. */
  void drain() {
    ASSERT_TRUE(until([this] { return open_requests() == 0; }));
    settle();
    requests_.clear();
  }
  /** Makes a new connection. Returns what the application holds while disconnected. */
  Holdings reconnect() {
    EXPECT_EQ(korvane_svcmgr_disconnect(), SVCMGR_ERROR_NONE);
    told_connected_ = false;
    note_connection();
    const Holdings holdings;
    connect();
    return holdings;
  }
  std::ptrdiff_t service_descriptors() const {
    return Holdings(std::to_string(emulator_.pid())).descriptors;
  }
  std::ptrdiff_t open_requests() const {
    return std::count_if(requests_.begin(), requests_.end(),
                         [](const Request &request) { return request.open; });
  }

  /** Application and service hold what they held at first, and both work. */
  void expect_nothing_left_behind() {
    constexpr std::size_t kLeeway = 16 << 10;  // buffers that grew, not one entry for each request
    drain();
    const Holdings now = reconnect();
    EXPECT_EQ(now.descriptors, at_first_.descriptors);
    EXPECT_LE(now.heap, at_first_.heap + kLeeway);
    EXPECT_TRUE(until([this] { return service_descriptors() <= service_at_first_; }));
    const std::size_t answers = answers_;
    request_list();
    drain();
    EXPECT_EQ(answers_, answers + 1);
  }

  // Faults of a service. Each function returns when the application is connected again.

  void kill_and_launch() {
    const std::size_t losses = losses_;
    emulator_.send_signal(SIGKILL);
    act(random(4));  // while the service exits, or afterwards
    ASSERT_TRUE(until([&] { return losses_ > losses; }));
    ASSERT_EQ(emulator_.wait(), -SIGKILL);
    act(random(4));
    start_emulator();
    expect_told_again(losses);
  }
  void stop_and_continue() {
    emulator_.stop();
    for (unsigned count = random(50); count > 0; --count) request_list();
    const auto waker = std::async([this] { emulator_.send_signal(SIGCONT); });
    int level = 0;
    EXPECT_EQ(korvane_svcmgr_get_agent_api_level(&level), SVCMGR_ERROR_NONE);
  }
  void drop_and_announce() {
    const std::size_t losses = losses_;
    control({"drop"});
    act(random(4));
    ASSERT_TRUE(until([&] { return losses_ > losses; }));
    control({"announce", "Launch"});
    expect_told_again(losses);
  }
  /** Announced updates of the service under load, which are not reported. */
  void update_service(unsigned rounds) {
    const std::size_t losses = losses_;
    const std::size_t wanted = connections_ + rounds;
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
  std::size_t losses_ = 0;       ///< disconnects that were reported
  std::size_t answers_ = 0;
  std::size_t statuses_ = 0;  ///< of models

 private:
  struct Request {
    FaultsTest &owner;
    bool open;
  };

  /** Expects a documented result, with or without a service. */
  static void expect_documented(int result) {
    EXPECT_THAT(result, testing::AnyOf(SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED,
                                       SVCMGR_ERROR_INVALID_OPERATION));
  }
  /** Sends a request; its user data is its entry in requests_. */
  template <typename Send>
  void request(Send send) {
    Request &account = requests_.emplace_back(Request{*this, true});
    const int result = send(&account);
    expect_documented(result);
    account.open = account.open && result == SVCMGR_ERROR_NONE;
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
  void expect_told_again(std::size_t losses) {
    ASSERT_TRUE(until([this] { return told_connected_; }));
    EXPECT_EQ(losses_, losses + 1);
  }

  static void on_connection(int, korvane_svcmgr_connection_state_e state, void *user_data) {
    auto &self = *static_cast<FaultsTest *>(user_data);
    const bool connected = state == SVCMGR_CONNECTION_CONNECTED;
    EXPECT_NE(std::exchange(self.told_connected_, connected), connected);
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
  bool connected_ = false;
  bool told_connected_ = false;
  Holdings at_first_;
  std::ptrdiff_t service_at_first_ = 0;
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

TEST_F(FaultsTest, AThousandConnections) {
  for (int round = 0; round < 1000 && !HasFailure(); ++round) {
    request_list();
    reconnect();
  }
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
    if (rounds % 50 == 49) std::cout << rounds + 1 << " faults" << std::endl;
  }
  std::cout << rounds << " faults, " << connections_ << " connections, " << losses_
            << " told lost, " << answers_ << " answers" << std::endl;
}

}  // namespace
