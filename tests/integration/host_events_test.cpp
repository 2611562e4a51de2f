// Application events: dead subscribers, slow senders and invalid events.
#include <utility>

#include "app_event.h"
#include "events/event_publisher.h"
#include "host_fixture.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

using namespace korvane::host;
namespace fs = std::filesystem;

namespace {

constexpr char kList[] = "a list whose name is longer than others";

EventBundle payload(const std::string &text) {
  EventBundle bundle;
  bundle.set_string_array(kList, {"x", text});
  return bundle;
}

class HostEventsTest : public HostTest {
 protected:
  /** A subscription that logs the texts of its events; it may end itself at the first one. */
  struct Subscriber {
    Log *log;
    bool once = false;
    event_handler_h handler = nullptr;

    ~Subscriber() { remove(); }
    void remove() {
      if (handler != nullptr) event_remove_event_handler(std::exchange(handler, nullptr));
    }
    int add(const char *name) { return event_add_event_handler(name, on_event, this, &handler); }
    static void on_event(const char *, bundle_h bundle, void *user_data) {
      auto &self = *static_cast<Subscriber *>(user_data);
      int count = 0;
      const char **list = bundle_get_str_array(bundle, kList, &count);
      ScarceMemory::in_test([&] {
        self.log->push_back(list != nullptr && count == 2 ? list[1] : "part of an event");
      });
      if (self.once) self.remove();
    }
  };

  std::vector<fs::path> sockets() const {
    std::vector<fs::path> paths;
    for (const auto &entry : fs::directory_iterator(device_ / "run" / "events" / "a")) {
      paths.push_back(entry.path());
    }
    return paths;
  }

  Log log_;
};

TEST_F(HostEventsTest, DeadSubscriberIsRemovedByTheNextPublisher) {
  Subscriber alive{&log_};
  Subscriber once{&log_, true};
  ASSERT_EQ(alive.add("a"), 0);
  ASSERT_EQ(once.add("a"), 0);
  listen_at(device_ / "run" / "events" / "a" / "0.dead");  // closed, its file stays
  const PublishResult first = publish_event("a", payload("1"));
  EXPECT_EQ(first.reached, 2U);
  EXPECT_EQ(first.dead, 1U);
  EXPECT_EQ(publish_event("a", payload("2")).dead, 0U);
  run_idle();
  EXPECT_EQ(log_.size(), 3U);
  EXPECT_EQ(sockets().size(), 1U);
  alive.remove();
  EXPECT_TRUE(sockets().empty());
  const ListenerPath next(device_ / "run" / "events" / "a" / "0.next");
  const UniqueFd listener = next.listen();
  EXPECT_EQ(publish_event("a", payload("3")).reached, 0U) << "not to be found yet";
  EXPECT_EQ(sockets().size(), 1U);
}

TEST_F(HostEventsTest, HalfSentEventDelaysNoOther) {
  Subscriber subscriber{&log_};
  ASSERT_EQ(subscriber.add("a"), 0);
  const fs::path path = sockets().at(0);
  const Bytes frame = event_frame(payload("slow"));
  const auto middle = frame.begin() + 7;
  UniqueFd slow = connect_to(path), gone = connect_to(path), rubbish = connect_to(path);
  for (const UniqueFd *socket : {&slow, &gone}) {
    ASSERT_EQ(write_all(socket->get(), Bytes(frame.begin(), middle), 10000), 0);
  }
  ASSERT_EQ(write_all(rubbish.get(), {0xFF, 0xFF, 0xFF, 0xFF, 1}, 10000), 0);
  publish_event("a", payload("quick"));
  run_idle();
  gone.reset();
  run_idle();
  EXPECT_EQ(log_, Log{"quick"});
  ASSERT_EQ(write_all(slow.get(), Bytes(middle, frame.end()), 10000), 0);
  run_idle();
  EXPECT_EQ(log_, (Log{"quick", "slow"}));
}

TEST_F(HostEventsTest, NamesAndPayloadsAreChecked) {
  for (const char *name : {"", "..", "a/b"}) {
    Subscriber subscriber{&log_};
    EXPECT_EQ(subscriber.add(name), -EINVAL) << name;
    EXPECT_THROW(publish_event(name, payload("x")), std::system_error) << name;
  }
  EXPECT_THROW(publish_event("a", payload(std::string(kMaxFrameSize, 'x'))), std::system_error);
  Subscriber silent{&log_};
  ASSERT_EQ(silent.add("a"), 0);
  EXPECT_EQ(publish_event("a", payload(std::string(1 << 20, 'x'))).dropped, 1U) << "not waited for";
}

TEST_F(HostEventsTest, NoPartOfABundlePasses) {
  const Bytes whole = payload("text").encode().bytes();
  EXPECT_TRUE(EventBundle::decode(Parcel(whole)).has_value());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(EventBundle::decode(Parcel(part)).has_value()) << size;
  }
  Parcel unknown_type;
  unknown_type.write_array_count(1);
  unknown_type.write_string("key");
  unknown_type.write_int32(3);
  EXPECT_FALSE(EventBundle::decode(unknown_type).has_value());
  Parcel no_text({2, 0, 0, 0});
  std::string text;
  bool truth = false;
  std::int32_t number = 0;
  EXPECT_FALSE(no_text.read_string(text));
  EXPECT_FALSE(no_text.read_bool(truth));
  EXPECT_TRUE(no_text.read_int32(number)) << "what cannot be read stays";
}

TEST_F(HostEventsTest, EventThatLacksMemoryIsDroppedAndLaterOnesCome) {
  ScarceMemory::tell([this] {
    log_.clear();
    Subscriber subscriber{&log_};
    int error = 0;
    ScarceMemory::in_platform([&] { error = subscriber.add("a"); });
    if (error != 0) {
      EXPECT_TRUE(event_subscribers("a").empty());
      EXPECT_EQ(sockets().size(), 0U);
      return;
    }
    publish_event("a", payload("1"));
    publish_event("a", payload("2"));
    ScarceMemory::in_platform([] { run_idle(); });
    EXPECT_GE(log_.size(), 1U);
    publish_event("a", payload("3"));
    run_idle();
    EXPECT_EQ(log_.back(), "3");
  });
}

TEST_F(HostEventsTest, SubscribersThatTakeNothingHoldUpAPublisherTogether) {
  Subscriber silent[40];
  for (Subscriber &subscriber : silent) {
    subscriber.log = &log_;
    ASSERT_EQ(subscriber.add("a"), 0);
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(publish_event("a", payload(std::string(1 << 20, 'x'))).dropped, 40U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << "40 times 0.2 s";
}

TEST_F(HostEventsTest, SenderThatSaysNothingIsDropped) {
  limits.greeting = 1;
  Subscriber subscriber{&log_};
  ASSERT_EQ(subscriber.add("a"), 0);
  const UniqueFd silent = connect_to(sockets().at(0));
  FrameReader nothing;
  while (read_available(silent.get(), nothing) != ReadState::kEnd) loop().step(1);
  limits = Limits();
}

}  // namespace
