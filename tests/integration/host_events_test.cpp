// Application events: several subscribers, dead ones, slow senders, and their order.
#include <algorithm>
#include <utility>

#include "app_event.h"
#include "event_publisher.h"
#include "host_fixture.h"
#include "local_socket.h"

using namespace korvane::host;
namespace fs = std::filesystem;

namespace {

EventBundle payload(const std::string &text) {
  EventBundle bundle;
  bundle.set_string("text", text);
  return bundle;
}

class HostEventsTest : public HostTest {
 protected:
  /** A subscription that logs "name:text"; it may end itself at the first event. */
  struct Subscriber {
    Log *log;
    bool once = false;
    event_handler_h handler = nullptr;

    ~Subscriber() { remove(); }
    void remove() {
      if (handler != nullptr) event_remove_event_handler(std::exchange(handler, nullptr));
    }
    int add(const char *name) { return event_add_event_handler(name, on_event, this, &handler); }
    static void on_event(const char *name, bundle_h bundle, void *user_data) {
      auto &self = *static_cast<Subscriber *>(user_data);
      char *text = nullptr;
      bundle_get_str(bundle, "text", &text);
      self.log->push_back(std::string(name) + ":" + (text == nullptr ? "none" : text));
      if (self.once) self.remove();
    }
  };

  std::vector<fs::path> sockets(const std::string &name) const {
    std::vector<fs::path> paths;
    for (const auto &entry : fs::directory_iterator(device_ / "run" / "events" / name)) {
      paths.push_back(entry.path());
    }
    return paths;
  }

  Log log_;
};

TEST_F(HostEventsTest, DeadSubscriberIsRemovedByTheNextPublisher) {
  Subscriber alive{&log_};
  ASSERT_EQ(alive.add("a"), 0);
  listen_at(device_ / "run" / "events" / "a" / "0.dead");  // closed, its file stays
  ASSERT_EQ(sockets("a").size(), 2U);
  const PublishResult first = publish_event("a", payload("1"));
  EXPECT_EQ(first.reached, 1U);
  EXPECT_EQ(first.dead, 1U);
  EXPECT_EQ(sockets("a").size(), 1U);
  EXPECT_EQ(publish_event("a", payload("2")).dead, 0U);
  run_idle();
  EXPECT_EQ(log_, (Log{"a:1", "a:2"}));
  alive.remove();
  EXPECT_TRUE(sockets("a").empty());
  listen_at(device_ / "run" / "events" / "a" / ".0");  // not listening yet, for all one can tell
  EXPECT_EQ(publish_event("a", payload("3")).dead, 0U);
  EXPECT_EQ(sockets("a").size(), 1U);
}

TEST_F(HostEventsTest, SubscriptionEndsInsideItsCallback) {
  Subscriber once{&log_, true}, stays{&log_};
  ASSERT_EQ(once.add("a"), 0);
  ASSERT_EQ(stays.add("a"), 0);
  for (const char *text : {"1", "2"}) {
    EXPECT_EQ(publish_event("a", payload(text)).reached, 2U);
    EXPECT_EQ(publish_event("nobody", payload(text)).reached, 0U);
  }
  run_idle();
  std::sort(log_.begin(), log_.end());
  EXPECT_EQ(log_, (Log{"a:1", "a:1", "a:2"}));
}

TEST_F(HostEventsTest, HalfSentEventDelaysNoOther) {
  Subscriber subscriber{&log_};
  ASSERT_EQ(subscriber.add("a"), 0);
  const fs::path path = sockets("a").at(0);
  Bytes frame;
  append_frame(frame, payload("slow").encode().bytes());
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
  EXPECT_EQ(log_, Log{"a:quick"});
  ASSERT_EQ(write_all(slow.get(), Bytes(middle, frame.end()), 10000), 0);
  run_idle();
  EXPECT_EQ(log_, (Log{"a:quick", "a:slow"}));
  UniqueFd left_behind = connect_to(path);
  ASSERT_EQ(write_all(left_behind.get(), Bytes(frame.begin(), middle), 10000), 0);
  run_idle();
  subscriber.remove();
  run_idle();
  EXPECT_EQ(log_.size(), 2U);
}

TEST_F(HostEventsTest, NamesAndPayloadsAreChecked) {
  for (const char *name : {"", ".", "..", "a/b", "/"}) {
    Subscriber subscriber{&log_};
    EXPECT_EQ(subscriber.add(name), -EINVAL) << name;
    EXPECT_THROW(publish_event(name, payload("x")), std::system_error) << name;
  }
  EXPECT_THROW(publish_event("a", payload(std::string(kMaxFrameSize, 'x'))), std::system_error);
}

TEST_F(HostEventsTest, BundleSurvivesTheWayAndNoPartOfItPasses) {
  EventBundle bundle;
  bundle.set_string("text", "t\xC3\xA4xt");
  bundle.set_string_array("list", {"", "b"});
  bundle.set_string_array("empty", {});
  bundle.set_bytes("bytes", {0, 255});
  const Bytes whole = bundle.encode().bytes();
  const auto copy = EventBundle::decode(Parcel(whole));
  ASSERT_TRUE(copy.has_value());
  EXPECT_EQ(*copy->find<std::string>("text"), "t\xC3\xA4xt");
  EXPECT_EQ(*copy->find<Log>("list"), (Log{"", "b"}));
  EXPECT_EQ(*copy->find<Log>("empty"), Log{});
  EXPECT_EQ(*copy->find<EventBundle::Bytes>("bytes"), (Bytes{0, 255}));
  EXPECT_EQ(copy->find<std::string>("list"), nullptr);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(EventBundle::decode(Parcel(part)).has_value()) << size;
  }
}

}  // namespace
