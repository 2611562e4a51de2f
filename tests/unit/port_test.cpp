#include <pthread.h>

#include <future>
#include <memory>
#include <set>
#include <thread>

#include "SvcMgrAppProxy.h"
#include "library_test.h"

using namespace rpc_port::SvcMgrAppProxy::proxy;

namespace {

using Port = SvcMgrAppPort;

// Drawn before any test runs.
const int kFirstNumber = Port::RequestToUninstallCallback(true).GetSeq();
const int kSecondNumber = Port::GetUsableModelListCallback(true).GetSeq();

/** Takes whether the library's lock was free when this thread first wanted it. */
thread_local std::promise<bool> *lock_tried = nullptr;

void tell_lock(bool was_free) {
  if (lock_tried != nullptr) std::exchange(lock_tried, nullptr)->set_value(was_free);
}

}  // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (lock_tried == nullptr || !AllocationScope::in_library) {
    return __real_pthread_mutex_lock(mutex);
  }
  const bool was_free = pthread_mutex_trylock(mutex) == 0;
  tell_lock(was_free);
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
    ~Delegate() override {
      test.events.push_back(name + " deleted");
      if (at_end) at_end();
    }
    void OnReceived(int code, AIUpdateProgressInfo) override {
      test.record(name + " answered " + std::to_string(code));
    }
    PortTest &test;
    const std::string name;
    std::function<void()> at_end;
  };

  void open() {
    port = std::make_unique<Port>(this, SVCMGR_APP_ID);
    port->Connect(true);
    events.clear();
  }
  void send(std::unique_ptr<Delegate> delegate) {
    const AIModelInfo model("id", "1", "title", "text");
    port->RequestToUpdate(std::move(delegate), AIModelList({model, {}}, 7));
  }
  /** Sends a request; its delegate, which the port owns. */
  Delegate *request(const std::string &name, bool once = false) {
    auto delegate = std::make_unique<Delegate>(*this, name, once);
    Delegate *const registered = delegate.get();
    send(std::move(delegate));
    return registered;
  }
  /** An event of the service manager for one delegate. */
  struct Event {
    int command = 1, kind = 4, number = 0, code = 0;
    bool once = false;
    Parcel parcel() const { return {command, kind, number, once, code, 17, 1, 2, 50}; }
  };
  static Event event_for(const Delegate *delegate) {
    Event event;
    event.number = delegate->GetSeq();
    return event;
  }
  static void deliver(const Event &event) { platform.deliver(event.parcel()); }
  static void answer(const Delegate *delegate) { deliver(event_for(delegate)); }
  /** Gives a delegate the number of another one. */
  static void rename(Delegate &delegate, const Delegate &other) {
    rpc_port_parcel_s identity = {{other.GetId(), other.GetSeq(), false}};
    Port::CallbackBase::ReadDelegate(&identity, delegate);
  }

  Texts events;
  std::unique_ptr<Port> port;
};

// Requests and their delegates.

TEST_F(PortTest, DelegatesOfAllKindsDrawFromOneSequence) {
  EXPECT_EQ(0, kFirstNumber);
  EXPECT_EQ(1, kSecondNumber);
}

TEST_F(PortTest, ThreadsDrawDistinctNumbers) {
  const auto draw = [] {
    std::set<int> numbers;
    for (int i = 0; i < 1000; ++i) numbers.insert(Port::RequestToUpdateCallback(true).GetSeq());
    return numbers;
  };
  auto others = std::async(std::launch::async, draw);
  std::set<int> numbers = draw();
  numbers.merge(others.get());
  EXPECT_EQ(2000U, numbers.size());
}

TEST_F(PortTest, ARequestNamesItsDelegateBeforeItsArguments) {
  const int number = request("a", true)->GetSeq();
  EXPECT_EQ((Parcel{8, 4, number, true, Count{2}, "id", "1", "title", "text", "", "", "", "", 7}),
            platform.sent.back());
}

TEST_F(PortTest, AnAnswerReachesOnlyItsDelegate) {
  request("a");
  const Delegate *b = request("b");
  request("c");
  Event event = event_for(b);
  event.code = 3;
  deliver(event);
  deliver(event);
  EXPECT_THAT(events, ElementsAre("b answered 3", "b answered 3"));
}

TEST_F(PortTest, TheServiceManagerDoesNotDecideHowLongADelegateLives) {
  Event event = event_for(request("a"));
  event.once = true;
  deliver(event);
  deliver(event);
  EXPECT_THAT(events, ElementsAre("a answered 0", "a answered 0"));
}

TEST_F(PortTest, ADelegateForOneAnswerIsDeletedAfterIt) {
  const Event event = event_for(request("a", true));
  deliver(event);
  deliver(event);
  EXPECT_THAT(events, ElementsAre("a answered 0", "a deleted"));
}

TEST_F(PortTest, AnEventForNoneIsDropped) {
  const Event valid = event_for(request("a"));
  for (const int neighbour : {-1, 1}) {
    Event other_kind = valid, other_number = valid, other_command = valid;
    other_kind.kind += neighbour;
    other_number.number += neighbour;
    other_command.command += neighbour;
    for (const Event &event : {other_kind, other_number, other_command}) deliver(event);
  }
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(PortTest, AnEventThatCannotBeReadIsLost) {
  for (const char *refused : {"rpc_port_parcel_create_from_port", "rpc_port_proxy_get_port"}) {
    platform.failures[refused] = -EIO;
    open();
    answer(request("a"));
    EXPECT_THAT(events, IsEmpty());
    expect_logged({"P OnReceivedCB: Failed to create parcel from port"});
    platform.repair();
  }
}

TEST_F(PortTest, ADelegateKeepsTheIdentityThatItWasRegisteredWith) {
  const Delegate *a = request("a");
  Delegate *b = request("b");
  const Event event = event_for(b);
  rename(*b, *a);
  deliver(event);
  EXPECT_THAT(events, ElementsAre("b answered 0"));
}

TEST_F(PortTest, OfEqualDelegatesTheFirstOneCounts) {
  const Delegate *a = request("a");
  auto b = std::make_unique<Delegate>(*this, "b", false);
  rename(*b, *a);
  const Event event = event_for(a);
  const std::string tag = a->GetTag();
  send(std::move(b));
  deliver(event);
  port->RemoveDelegateByTag(tag);
  deliver(event);
  EXPECT_THAT(events, ElementsAre("a answered 0", "a deleted", "b answered 0"));
}

TEST_F(PortTest, ADelegateIsRemovedByItsTag) {
  const Event event = event_for(request("a"));
  port->RemoveDelegateByTag("5::" + std::to_string(event.number));
  EXPECT_THAT(events, IsEmpty());
  port->RemoveDelegateByTag("4::" + std::to_string(event.number));
  deliver(event);
  EXPECT_THAT(events, ElementsAre("a deleted"));
}

TEST_F(PortTest, ARejectionKeepsTheDelegates) {
  const Delegate *a = request("a");
  platform.report_rejected();
  answer(a);
  EXPECT_THAT(events, ElementsAre("rejected", "a answered 0"));
}

TEST_F(PortTest, ALossDeletesTheDelegatesBeforeItIsReported) {
  const Event event = event_for(request("a"));
  platform.report_disconnected();
  deliver(event);
  EXPECT_THAT(events, ElementsAre("a deleted", "disconnected"));
}

TEST_F(PortTest, APortDeletesItsDelegates) {
  request("a");
  port.reset();
  EXPECT_THAT(events, ElementsAre("a deleted"));
}

TEST_F(PortTest, ADelegateThatIsDroppedFindsNoOther) {
  const std::function<void()> ends[] = {[] { platform.report_disconnected(); },
                                        [this] { port.reset(); }};
  for (const auto &end : ends) {
    open();
    const std::vector<Delegate *> delegates = {request("a"), request("b"), request("c")};
    Texts tags;
    std::vector<Event> answers_to_all;
    for (const Delegate *delegate : delegates) {
      tags.push_back(delegate->GetTag());
      answers_to_all.push_back(event_for(delegate));
    }
    for (Delegate *delegate : delegates) {
      delegate->at_end = [&, dropping = port.get()] {
        for (const Event &event : answers_to_all) deliver(event);
        for (const std::string &tag : tags) dropping->RemoveDelegateByTag(tag);
      };
    }
    end();
    EXPECT_THAT(events, ::testing::IsSupersetOf({"a deleted", "b deleted", "c deleted"}));
    EXPECT_THAT(events, Not(Contains(HasSubstr("answered"))));
  }
}

// Failures.

TEST_F(PortTest, BeforeTheConnectionNothingIsSent) {
  port = std::make_unique<Port>(this, SVCMGR_APP_ID);
  EXPECT_THROW(request("a"), NotConnectedSocketException);
  EXPECT_THAT(events, ElementsAre("a deleted"));
  EXPECT_THROW(port->get_license(), NotConnectedSocketException);
  EXPECT_THAT(platform.take_log(),
              ElementsAre("P RequestToUpdate: Not connected", "P get_license: Not connected"));
  EXPECT_THAT(platform.sent, IsEmpty());
}

TEST_F(PortTest, ADelegateStaysRegisteredAfterAFailedSend) {
  platform.failures["rpc_port_parcel_send"] = -EIO;
  auto delegate = std::make_unique<Delegate>(*this, "a", false);
  const Event event = event_for(delegate.get());
  EXPECT_THROW(send(std::move(delegate)), InvalidIOException);
  deliver(event);
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
  EXPECT_THROW(port->request_update(), InvalidProtocolException);
  platform.answer(5);
  std::thread([this] { EXPECT_EQ(5, port->request_update()); }).join();
}

TEST_F(PortTest, AMissingReplyIsAnInvalidProtocol) {
  EXPECT_THROW(port->get_license(), InvalidProtocolException);
  EXPECT_THAT(platform.take_log(), ElementsAre("P get_license: Invalid protocol"));
}

TEST_F(PortTest, ATextThatCannotBeReadIsEmpty) {
  platform.main_port.incoming = {{0}};
  EXPECT_EQ("", port->get_license());
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
  const std::function<void()> deeds[] = {
      [this] { request("b"); }, [] { platform.report_disconnected(); }, [this] { port.reset(); }};
  for (const bool once : {false, true}) {
    for (const auto &deed : deeds) {
      open();
      const Delegate *a = request("a", once);
      reaction = deed;
      answer(a);
      EXPECT_EQ(nullptr, reaction);
      port.reset();
      EXPECT_THAT(events, Contains("a deleted").Times(1));
    }
  }
}

TEST_F(PortTest, AnAnsweredDelegateMayBeRemoved) {
  const Delegate *a = request("a");
  reaction = [this, tag = a->GetTag()] { port->RemoveDelegateByTag(tag); };
  answer(a);
  EXPECT_THAT(events, ElementsAre("a answered 0", "a deleted"));
}

TEST_F(PortTest, TheListenerMayDestroyThePort) {
  const std::function<void()> reports[] = {[] { platform.report_connected(); },
                                           [] { platform.report_disconnected(); },
                                           [] { platform.report_rejected(); }};
  for (const auto &report : reports) {
    open();
    request("a");
    reaction = [this] { port.reset(); };
    report();
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
    platform.on_send = [] { tell_lock(true); };
    platform.main_port.incoming = {{0, 2}, {0, 4}};
    EXPECT_EQ(2, port->get_agent_api_level());
    second.join();
  }
}

}  // namespace
