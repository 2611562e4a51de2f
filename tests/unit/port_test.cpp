#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <set>
#include <thread>

#include "SvcMgrAppProxy.h"
#include "library_test.h"

using namespace rpc_port::SvcMgrAppProxy::proxy;

namespace {

using Port = SvcMgrAppPort;

/** Takes whether the port's lock was free when this thread first wanted it. */
thread_local std::promise<bool> *lock_tried = nullptr;

void report_lock(bool was_free) {
  if (lock_tried != nullptr) std::exchange(lock_tried, nullptr)->set_value(was_free);
}

}  // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (lock_tried == nullptr || !AllocationScope::in_library) {
    return __real_pthread_mutex_lock(mutex);
  }
  const bool was_free = pthread_mutex_trylock(mutex) == 0;
  report_lock(was_free);
  return was_free ? 0 : __real_pthread_mutex_lock(mutex);
}

namespace {

class PortTest : public LibraryTest, public Port::IEventListener {
 protected:
  PortTest() { open(); }
  void TearDown() override {
    port.reset();
    LibraryTest::TearDown();
  }
  void OnConnected() override { record("connected"); }
  void OnDisconnected() override { record("disconnected"); }
  void OnRejected() override { record("rejected"); }
  void record(const std::string &event) {
    events.push_back(event);
    const auto taken = std::exchange(reaction, nullptr);
    if (taken) taken();
  }

  struct Delegate : Port::RequestToUpdateCallback {
    Delegate(PortTest &owner, std::string its_name, bool once)
        : RequestToUpdateCallback(once), test(owner), name(std::move(its_name)) {}
    ~Delegate() override { test.events.push_back(name + " deleted"); }
    void OnReceived(int code, AIUpdateProgressInfo) override {
      test.record(name + " answered " + std::to_string(code));
    }
    PortTest &test;
    const std::string name;
  };

  void open() {
    port = std::make_unique<Port>(this, SVCMGR_APP_ID);
    port->Connect(true);
    events.clear();
  }
  /** Sends a request and returns the number of its delegate. */
  int request(const std::string &name, bool once = false) {
    auto delegate = std::make_unique<Delegate>(*this, name, once);
    number_of_last = delegate->GetSeq();
    port->RequestToUpdate(std::move(delegate), AIModelList());
    return number_of_last;
  }
  static void deliver(int command, int kind, int number, int code) {
    const bool once = true;  // only what the delegate itself says counts
    platform.deliver({command, kind, number, once, code});
  }
  static void answer(int number, int code = 0) { deliver(kCallback, kUpdate, number, code); }

  static constexpr int kCallback = 1;
  static constexpr int kUpdate = static_cast<int>(Port::DelegateId::RequestToUpdate);
  Texts events;
  int number_of_last = 0;
  std::unique_ptr<Port> port;
};

// Requests and their delegates.

TEST_F(PortTest, ThreadsDrawDistinctNumbers) {
  std::atomic<int> missing{2};  // threads that do not draw yet
  const auto draw = [&missing] {
    std::vector<int> numbers(100000);
    --missing;
    while (missing > 0) std::this_thread::yield();
    for (int &number : numbers) number = Port::RequestToUpdateCallback(true).GetSeq();
    return numbers;
  };
  auto others = std::async(std::launch::async, draw);
  std::vector<int> numbers = draw();
  for (const int number : others.get()) numbers.push_back(number);
  EXPECT_EQ(200000U, std::set(numbers.begin(), numbers.end()).size());
}

TEST_F(PortTest, EachAnswerReachesOnlyItsDelegate) {
  request("a");
  const int b = request("b");
  request("c");
  answer(b, 3);
  answer(b, 4);
  EXPECT_THAT(events, ElementsAre("b answered 3", "b answered 4"));
}

TEST_F(PortTest, ADelegateForOneAnswerIsDeletedAfterIt) {
  const int a = request("a", true);
  answer(a);
  answer(a);
  EXPECT_THAT(events, ElementsAre("a answered 0", "a deleted"));
}

TEST_F(PortTest, AnEventForNoDelegateIsDropped) {
  const int a = request("a");
  answer(a - 1);
  deliver(kCallback, kUpdate - 1, a, 0);
  deliver(kCallback + 1, kUpdate, a, 0);
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(PortTest, AnEventThatCannotBeReadIsLogged) {
  platform.failures["rpc_port_parcel_create_from_port"] = -EIO;
  answer(request("a"));
  EXPECT_THAT(events, IsEmpty());
  expect_logged({"P OnReceivedCB: Failed to create parcel from port"});
}

TEST_F(PortTest, ADelegateIsRemovedByItsTag) {
  const int a = request("a");
  port->RemoveDelegateByTag(std::to_string(kUpdate) + "::" + std::to_string(a));
  answer(a);
  EXPECT_THAT(events, ElementsAre("a deleted"));
}

TEST_F(PortTest, ALossDeletesTheDelegatesBeforeItIsReported) {
  const int a = request("a");
  platform.report_disconnected();
  answer(a);
  EXPECT_THAT(events, ElementsAre("a deleted", "disconnected"));
}

// Failures.

TEST_F(PortTest, ADelegateStaysRegisteredAfterAFailedSend) {
  platform.failures["rpc_port_parcel_send"] = -EIO;
  EXPECT_THROW(request("a"), InvalidIOException);
  answer(number_of_last);
  EXPECT_THAT(events, ElementsAre("a answered 0"));
}

TEST_F(PortTest, AFailedSendIsLoggedBeforeTheRequestIsReleased) {
  platform.failures["rpc_port_parcel_send"] = -EIO;
  platform.forget();
  EXPECT_THROW(port->request_update(), InvalidIOException);
  EXPECT_THAT(platform.calls,
              ElementsAre("rpc_port_parcel_create", "rpc_port_parcel_write_int32",
                          "rpc_port_parcel_send", "dlog_print", "rpc_port_parcel_destroy"));
  EXPECT_THAT(platform.log, ElementsAre("P request_update: Failed to send parcel. result(-5)"));
}

TEST_F(PortTest, AfterAFailedCallAnotherThreadMayCall) {
  platform.failures["rpc_port_parcel_send"] = -EIO;
  EXPECT_THROW(port->request_update(), InvalidIOException);
  platform.repair();
  EXPECT_THROW(port->request_update(), InvalidProtocolException) << "there is no reply";
  expect_logged({"P request_update: Invalid protocol"});
  platform.answer(5);
  std::thread([this] { EXPECT_EQ(5, port->request_update()); }).join();
}

TEST_F(PortTest, TheFirstResultIsTheReplyAfterAnyNumberOfStrayParcels) {
  platform.main_port.incoming.assign(1000, {1, 99});
  for (const Parcel &parcel : {Parcel{"0", 98}, Parcel{}, Parcel{0, 13}, Parcel{0, 14}})
    platform.main_port.incoming.push_back(parcel);
  EXPECT_EQ(13, port->get_agent_api_level());
  EXPECT_EQ(14, port->request_update());
}

// What a callback does.

TEST_F(PortTest, AnAnsweredDelegateMayDoAnything) {
  const std::function<void()> actions[] = {
      [this] { request("b"); }, [] { platform.report_disconnected(); }, [this] { port.reset(); }};
  for (const bool once : {false, true}) {
    for (const auto &action : actions) {
      open();
      const int a = request("a", once);
      reaction = action;
      answer(a);
      EXPECT_EQ(nullptr, reaction);
      port.reset();
      EXPECT_THAT(events, Contains("a deleted").Times(1));
    }
  }
}

TEST_F(PortTest, TheListenerMayDestroyThePort) {
  using Platform = ScriptedPlatform;
  for (const auto report :
       {&Platform::report_connected, &Platform::report_disconnected, &Platform::report_rejected}) {
    open();
    request("a");
    reaction = [this] { port.reset(); };
    (platform.*report)();
    EXPECT_EQ(nullptr, port);
    EXPECT_THAT(events, Contains("a deleted").Times(1));
  }
}

// Threads.

TEST_F(PortTest, ASecondThreadWaitsUntilTheFirstHasItsAnswer) {
  const std::function<void()> second_calls[] = {[this] { EXPECT_EQ(4, port->request_update()); },
                                                [this] { request("a"); }};
  for (const auto &second_call : second_calls) {
    open();
    platform.forget();
    std::promise<bool> tried;
    std::thread second;
    platform.before_read = [&] {
      second = std::thread([&] {
        lock_tried = &tried;
        second_call();
      });
      EXPECT_FALSE(tried.get_future().get()) << "the first call waits for its answer";
      EXPECT_EQ(1U, platform.sent.size());
    };
    platform.on_send = [] { report_lock(true); };
    platform.main_port.incoming = {{0, 2}, {0, 4}};
    EXPECT_EQ(2, port->get_agent_api_level());
    second.join();
  }
}

}  // namespace
