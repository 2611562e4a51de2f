// Children made by fork, which share the sockets of their parent.
#include <malloc.h>
#include <unistd.h>

#include <csignal>

#include "app_event.h"
#include "events/event_publisher.h"
#include "host_port_fixture.h"
#include "korvane_host.h"

namespace korvane::host {
namespace {

class HostForkTest : public HostClientTest {
 protected:
  HostForkTest() {
    open(client_);
    const auto on_event = [](const char *, bundle_h, void *log) {
      static_cast<Log *>(log)->push_back("event");
    };
    EXPECT_EQ(event_add_event_handler("a", on_event, &client_.log, &handler_), 0);
    main_port_ = client_.port(Port::kMain);
  }
  ~HostForkTest() override { event_remove_event_handler(handler_); }

  Client client_;
  event_handler_h handler_ = nullptr;
  rpc_port_h main_port_ = nullptr;
};

TEST_F(HostForkTest, ChildUsesNothingOfItsParentAndConnectsItself) {
  EXPECT_TRUE(in_child([this] {
    if (Client::send(main_port_, "child") != -EIO) return false;
    if (Client::read(main_port_) != -EIO) return false;
    Client own;
    open(own);
    return !HasFailure();
  }));
}

TEST_F(HostForkTest, ChildLeavesConnectionAndEventsToItsParent) {
  publish_event("a", EventBundle());
  EXPECT_TRUE(in_child([this] {
    run_idle();
    event_remove_event_handler(handler_);
    client_.destroy();
    return !HasFailure();
  }));
  EXPECT_EQ(publish_event("a", EventBundle()).reached, 1U);
  run_idle();
  put(main_, text_frame("reply"));
  EXPECT_EQ(Client::send(main_port_, "parent"), 0);
  EXPECT_EQ(Client::read(main_port_), 0);
  EXPECT_EQ(client_.log, (Log{"connected", "event", "event"}));
}

TEST_F(HostForkTest, QuitInASignalHandlerEndsTheFirstLoopOfAChildWithoutAllocating) {
  std::signal(SIGALRM, [](int) { korvane_host_main_loop_quit(); });
  EXPECT_TRUE(in_child([] {
    const std::size_t heap = mallinfo2().uordblks;
    std::raise(SIGALRM);
    const bool has_allocated = mallinfo2().uordblks != heap;
    alarm(60);  // ends a loop that the first signal did not end
    return !has_allocated && korvane_host_main_loop_run() == 0 && alarm(0) != 0;
  }));
  std::signal(SIGALRM, SIG_DFL);
  EXPECT_EQ(korvane_host_main_loop_step(0), 0) << "the parent's loop does not quit";
}

}  // namespace
}  // namespace korvane::host
