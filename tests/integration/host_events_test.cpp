// Application events: dead subscribers, slow senders and invalid events.
#include <chrono>
#include <string>
#include <vector>

#include "app_event.h"
#include "events/event_publisher.h"
#include "host_fixture.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

using namespace korvane::host;
namespace fs = std::filesystem;

namespace {

constexpr char kKey[] = "a key that is longer than short strings are";

EventBundle payload(const std::string &text) {
  EventBundle bundle;
  bundle.set_string_array(kKey, {"x", text});
  return bundle;
}

using Log = std::vector<std::string>;

/** A subscription that logs the texts of its events. */
class Subscriber {
 public:
  Subscriber() = default;
  Subscriber(const Subscriber &) = delete;
  Subscriber &operator=(const Subscriber &) = delete;
  ~Subscriber() { event_remove_event_handler(handler_); }

  int add(Log &log, const char *name = "a") {
    return event_add_event_handler(name, on_event, &log, &handler_);
  }

 private:
  static void on_event(const char *, bundle_h bundle, void *log) {
    int count = 0;
    const char **texts = bundle_get_str_array(bundle, kKey, &count);
    AllocationFault::in_test(
        [&] { static_cast<Log *>(log)->push_back(count == 2 ? texts[1] : "part of an event"); });
  }

  event_handler_h handler_ = nullptr;
};

class HostEventsTest : public HostTest {
 protected:
  std::vector<fs::path> sockets() const {
    const fs::directory_iterator entries(folder_of_event_);
    return {begin(entries), end(entries)};
  }

  const fs::path folder_of_event_ = device_ / "run" / "events" / "a";
  Log log_;
};

TEST_F(HostEventsTest, DeadSubscriberIsRemovedByThePublisher) {
  Subscriber alive;
  ASSERT_EQ(alive.add(log_), 0);
  listen_at(folder_of_event_ / "0.dead");  // closed, its file stays
  const PublishResult first = publish_event("a", payload("1"));
  EXPECT_EQ(first.reached, 1U);
  EXPECT_EQ(first.dead, 1U);
  EXPECT_EQ(publish_event("a", payload("2")).dead, 0U);
  run_idle();
  EXPECT_EQ(log_, (Log{"1", "2"}));
}

TEST_F(HostEventsTest, HalfSentEventDelaysNoOther) {
  Subscriber subscriber;
  ASSERT_EQ(subscriber.add(log_), 0);
  const fs::path path = sockets().at(0);
  const Bytes frame = event_frame(payload("slow"));
  const auto middle = frame.begin() + 7;
  const UniqueFd slow = connect_to(path), oversized = connect_to(path);
  ASSERT_EQ(write_all(connect_to(path).get(), Bytes(frame.begin(), middle), 10000), 0);
  ASSERT_EQ(write_all(slow.get(), Bytes(frame.begin(), middle), 10000), 0);
  ASSERT_EQ(write_all(oversized.get(), {0xFF, 0xFF, 0xFF, 0xFF, 1}, 10000), 0);
  publish_event("a", payload("quick"));
  run_idle();
  EXPECT_EQ(log_, Log{"quick"});
  ASSERT_EQ(write_all(slow.get(), Bytes(middle, frame.end()), 10000), 0);
  run_idle();
  EXPECT_EQ(log_, (Log{"quick", "slow"}));
}

TEST_F(HostEventsTest, NamesAndSizesAreChecked) {
  for (const char *name : {"", "..", "a/b"}) {
    EXPECT_EQ(Subscriber().add(log_, name), -EINVAL) << name;
    EXPECT_THROW(publish_event(name, payload("x")), std::system_error) << name;
  }
  EXPECT_THROW(publish_event("a", payload(std::string(kMaxFrameSize, 'x'))), std::system_error);
}

TEST_F(HostEventsTest, PartOfABundleIsNoBundle) {
  const Bytes whole = payload("text").encode().bytes();
  EXPECT_TRUE(EventBundle::decode(Parcel(whole)).has_value());
  for (Bytes part = whole; !part.empty();) {
    part.pop_back();
    EXPECT_FALSE(EventBundle::decode(Parcel(part)).has_value()) << part.size();
  }
}

TEST_F(HostEventsTest, EventWithoutMemoryIsDroppedAndLaterOnesArrive) {
  AllocationFault::in_each_allocation([this] {
    log_.clear();
    Subscriber subscriber;
    if (AllocationFault::in_platform([&] { return subscriber.add(log_); }) != 0) {
      EXPECT_TRUE(event_subscribers("a").empty());
      EXPECT_TRUE(sockets().empty());
      return;
    }
    publish_event("a", payload("1"));
    publish_event("a", payload("2"));
    AllocationFault::in_platform([] { run_idle(); });
    EXPECT_GE(log_.size(), 1U);
    publish_event("a", payload("3"));
    run_idle();
    EXPECT_EQ(log_.back(), "3");
  });
}

TEST_F(HostEventsTest, SubscribersThatDoNotReadShareOneTimeLimit) {
  Subscriber silent[40];
  for (Subscriber &subscriber : silent) ASSERT_EQ(subscriber.add(log_), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(publish_event("a", payload(std::string(1 << 20, 'x'))).dropped, 40U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << "40 times 0.2 s";
}

TEST_F(HostEventsTest, SenderThatSendsNothingIsDisconnected) {
  limits.greeting = 1;
  Subscriber subscriber;
  ASSERT_EQ(subscriber.add(log_), 0);
  const UniqueFd silent = connect_to(sockets().at(0));
  FrameReader nothing;
  while (read_available(silent.get(), nothing) != ReadState::kEnd) loop().step(1);
}

}  // namespace
