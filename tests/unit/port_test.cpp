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

/** Drawn before any test runs. */
const int kFirstNumbers[] = {Port::RequestToUninstallCallback(true).GetSeq(),
                             Port::GetUsableModelListCallback(true).GetSeq()};

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
  void TearDown() override {
    port.reset();
    LibraryTest::TearDown();
  }
  void OnConnected() override { hear(this, "connected"); }
  void OnDisconnected() override { hear(this, "disconnected"); }
  void OnRejected() override { hear(this, "rejected"); }

  /** Records its answers and its end, under its number counted from first. */
  struct Progress : Port::RequestToUpdateCallback {
    Progress(PortTest &owner, bool once) : RequestToUpdateCallback(once), test(owner) {}
    ~Progress() override {
      test.heard.push_back("gone " + name);
      if (at_end) at_end();
    }
    void OnReceived(int code, AIUpdateProgressInfo) override { hear(&test, name, {code}); }
    PortTest &test;
    const std::string name = std::to_string(GetSeq() - test.first);
    std::function<void()> at_end;
  };

  void open() {
    port = std::make_unique<Port>(this, SVCMGR_APP_ID);
    port->Connect(true);
    heard.clear();
    first = Port::RequestToUpdateCallback(false).GetSeq() + 1;
  }
  /** Sends a request; its delegate, which the port owns. */
  Progress *request(bool once = false) {
    const AIModelInfo model("id", "1", "title", "text");
    auto delegate = std::make_unique<Progress>(*this, once);
    Progress *const registered = delegate.get();
    port->RequestToUpdate(std::move(delegate), AIModelList({model, {}}, 7));
    return registered;
  }
  void answer_to(int number, int kind = 4, bool once = false, int command = 1) {
    platform.deliver({command, kind, first + number, once, 3, 17, 1, 2, 50});
  }
  void remove(int kind) {
    port->RemoveDelegateByTag(std::to_string(kind) + "::" + std::to_string(first));
  }

  std::unique_ptr<Port> port = std::make_unique<Port>(this, SVCMGR_APP_ID);
  int first = Port::RequestToUpdateCallback(false).GetSeq() + 1;
};

TEST_F(PortTest, DelegatesAreFoundByKindAndNumber) {
  EXPECT_THAT(kFirstNumbers, ::testing::ElementsAre(0, 1));
  open();
  for (const bool once : {false, false, true}) request(once);
  const Parcel models = {Count{2}, "id", "1", "title", "text", "", "", "", "", 7};
  Parcel last_request = {8, 4, first + 2, true};
  last_request.insert(last_request.end(), models.begin(), models.end());
  EXPECT_EQ(last_request, platform.sent.back());
  answer_to(1, 4, true);
  answer_to(1);
  EXPECT_HEARD("1 3", "1 3") << "the service does not decide how long a delegate lives";
  answer_to(0, 5);
  answer_to(3);
  for (const int command : {0, 2}) answer_to(0, 4, false, command);
  EXPECT_HEARD() << "another kind, another number, another command";
  answer_to(2);
  answer_to(2);
  EXPECT_HEARD("2 3", "gone 2") << "once";
  remove(5);
  remove(4);
  EXPECT_HEARD("gone 0");
  platform.report_rejected();
  platform.report_disconnected();
  answer_to(1);
  EXPECT_HEARD("rejected", "gone 1", "disconnected");
  request();
  port.reset();
  EXPECT_HEARD("gone 3");
}

TEST_F(PortTest, ADelegateKeepsTheIdentityThatItWasRegisteredWith) {
  open();
  request();
  Progress *const second = request();
  rpc_port_parcel_s identity_of_the_first = {{4, first, false}};
  Port::CallbackBase::ReadDelegate(&identity_of_the_first, *second);

  answer_to(1);
  EXPECT_HEARD("1 3");
  remove(4);
  remove(4);
  EXPECT_HEARD("gone 0");
}

TEST_F(PortTest, OfEqualDelegatesTheFirstOneCounts) {
  open();
  rpc_port_parcel_s identity = {{4, first, false}};
  request();
  auto equal = std::make_unique<Progress>(*this, false);
  Port::CallbackBase::ReadDelegate(&identity, *equal);
  port->RequestToUpdate(std::move(equal), {});

  answer_to(0);
  EXPECT_HEARD("0 3");
  remove(4);
  answer_to(0);
  EXPECT_HEARD("gone 0", "1 3");
}

TEST_F(PortTest, ADelegateThatIsDroppedFindsNoOther) {
  const std::function<void()> ends[] = {[] { platform.report_disconnected(); },
                                        [this] { port.reset(); }};
  for (const auto &end : ends) {
    open();
    for (Progress *delegate : {request(), request(), request()}) {
      delegate->at_end = [this, dropping = port.get()] {
        for (const int number : {0, 1, 2}) {
          answer_to(number);
          dropping->RemoveDelegateByTag("4::" + std::to_string(first + number));
        }
      };
    }
    end();
    EXPECT_THAT(heard, ::testing::IsSupersetOf({"gone 0", "gone 1", "gone 2"}));
    EXPECT_THAT(heard, ::testing::Not(::testing::Contains(::testing::EndsWith(" 3"))));
  }
}

TEST_F(PortTest, Failures) {
  EXPECT_THROW(request(), NotConnectedSocketException);
  EXPECT_HEARD("gone 0");
  open();
  platform.failures["rpc_port_parcel_send"] = -7;
  EXPECT_THROW(port->request_update(), InvalidIOException);
  EXPECT_THROW(request(), InvalidIOException);
  EXPECT_LOG_HAS("P RequestToUpdate: Failed to send parcel. result(-7)|");
  platform.repair();
  answer_to(0);
  EXPECT_HEARD("0 3") << "stays registered after a failed send";
  platform.main_port.incoming = {{1, 99}, {"0", 98}, {}, {0, 13}, {0, 14}, {0}};
  EXPECT_EQ(13, port->get_agent_api_level()) << "the first result";
  EXPECT_EQ(14, port->request_update());
  EXPECT_EQ("", port->get_license()) << "a text that cannot be read is empty";
  EXPECT_THROW(port->get_license(), InvalidProtocolException);
  platform.answer(5);
  std::thread([this] { EXPECT_EQ(5, port->request_update()) << "the lock is free"; }).join();
  for (const char *refused : {"rpc_port_parcel_create_from_port", "rpc_port_proxy_get_port"}) {
    platform.failures[refused] = -5;
    open();
    request();
    answer_to(0);
    EXPECT_HEARD() << "an event that cannot be read is lost";
    EXPECT_LOG_HAS("P OnReceivedCB: Failed to create parcel from port|");
    platform.repair();
  }
}

TEST_F(PortTest, WhoIsToldMayDoAnything) {
  using Deed = std::function<void()>;
  const Deed answered = [this] { answer_to(0); }, lost = [] { platform.report_disconnected(); },
             destroy = [this] { port.reset(); };
  const std::pair<Deed, Deed> rows[] = {{answered, [this] { request(); }},
                                        {answered, [this] { remove(4); }},
                                        {answered, lost},
                                        {answered, destroy},
                                        {lost, destroy},
                                        {[] { platform.report_connected(); }, destroy},
                                        {[] { platform.report_rejected(); }, destroy}};
  for (const bool once : {false, true}) {
    for (const auto &[event, deed] : rows) {
      open();
      request(once);
      reaction = deed;
      event();
      EXPECT_EQ(nullptr, reaction) << "was done";
      port.reset();
      EXPECT_THAT(heard, ::testing::Contains("gone 0").Times(1));
    }
  }
}

TEST_F(PortTest, TwoThreadsNeverTakeEachOthersAnswers) {
  const std::function<void()> second_calls[] = {[this] { EXPECT_EQ(4, port->request_update()); },
                                                [this] { request(); }};
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

}  // namespace
