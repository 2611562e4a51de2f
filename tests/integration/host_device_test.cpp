// The device directory, parcels, and the main loop.
#include <poll.h>
#include <sys/stat.h>

#include <fstream>

#include "app_event.h"
#include "device.h"
#include "host_fixture.h"
#include "korvane_host.h"
#include "package.h"
#include "rpc_port.h"

using namespace korvane::host;
namespace fs = std::filesystem;

namespace {

constexpr int kNotInstalled = static_cast<int>(0xFEEB0071U);

class HostDeviceTest : public HostTest {
 protected:
  HostDeviceTest() { fs::create_directory(device_ / "packages"); }
  void install(const std::string &id, const std::string &json) const {
    std::ofstream(device_ / "packages" / (id + ".json"), std::ios::binary) << json;
  }
  static int look_up(const char *id) {
    package_info_h package = nullptr;
    const int error = package_info_create(id, &package);
    if (error == 0) package_info_destroy(package);
    return error;
  }
  static Log all_packages() {
    Log ids;
    const auto collect = [](package_info_h package, void *user_data) {
      char *id = nullptr;
      package_info_get_package(package, &id);
      static_cast<Log *>(user_data)->emplace_back(id);
      free(id);
      return true;
    };
    EXPECT_EQ(package_manager_foreach_package_info(collect, &ids), 0);
    return ids;
  }
};

std::string nested(std::size_t depth) {
  return R"({"id": "bad", "version": "1", "other": )" + std::string(depth, '[') +
         std::string(depth, ']') + "}";
}

TEST_F(HostDeviceTest, FaultyPackageFileIsAnErrorAndLeftOut) {
  install("a", R"({"id": "a", "version": "1"})");
  install("z", R"({"id": "z", "version": "1", "metadata": {"key": "value"}})");
  const std::string files[] = {"",
                               "null",
                               "[]",
                               "{",
                               R"({"id": "bad"})",
                               R"({"version": "1"})",
                               R"({"id": "other", "version": "1"})",
                               R"({"id": 1, "version": "1"})",
                               R"({"id": "bad", "version": null})",
                               R"({"id": "bad", "version": "1", "metadata": []})",
                               R"({"id": "bad", "version": "1", "metadata": {"key": 1}})",
                               R"({"id": "bad", "version": "1"} rest)",
                               "{\"id\": \"bad\", \"version\": \"\xFF\"}",
                               std::string("{\"id\": \"bad\", \"version\": \"\0\"}", 29),
                               nested(100),
                               nested(100000),
                               R"({"id": "bad", "version": "1"})" + std::string(1 << 20, ' ')};
  for (const std::string &file : files) {
    install("bad", file);
    EXPECT_EQ(look_up("bad"), -EIO) << file.substr(0, 60);
    app_info_h app = nullptr;
    EXPECT_EQ(app_info_create("bad", &app), -EIO) << file.substr(0, 60);
    EXPECT_EQ(all_packages(), (Log{"a", "z"})) << file.substr(0, 60);
  }
  install("bad", nested(8));
  EXPECT_EQ(look_up("bad"), 0);
  EXPECT_EQ(all_packages(), (Log{"a", "bad", "z"}));
}

TEST_F(HostDeviceTest, LookUpByName) {
  install("a", R"({"id": "a", "version": "1"})");
  fs::create_directory(device_ / "packages" / "folder.json");
  ASSERT_EQ(mkfifo((device_ / "packages" / "pipe.json").c_str(), 0600), 0);
  std::ofstream(device_ / "b.json") << R"({"id": "b", "version": "1"})";
  const std::pair<const char *, int> cases[] = {{"a", 0},         {"missing", kNotInstalled},
                                                {"", -EINVAL},    {"../b", -EINVAL},
                                                {"..", -EINVAL},  {"/a", -EINVAL},
                                                {"a/", -EINVAL},  {nullptr, -EINVAL},
                                                {"folder", -EIO}, {"pipe", -EIO}};
  for (const auto &[name, error] : cases) {
    EXPECT_EQ(look_up(name), error) << (name == nullptr ? "null" : name);
  }
  app_info_h app = nullptr;
  EXPECT_NE(app_info_create("a", &app), 0) << "a package without metadata is no application";
  unsetenv("KORVANE_DEVICE");
  EXPECT_EQ(look_up("a"), -EIO);
}

TEST_F(HostDeviceTest, RunFolderThatOthersReachIsRefused) {
  for (const mode_t mode : {0710U, 0701U, 0770U, 0700U}) {
    fs::create_directory(device_ / "run");
    ASSERT_EQ(chmod((device_ / "run").c_str(), mode), 0);
    rpc_port_proxy_h proxy = nullptr;
    rpc_port_proxy_create(&proxy);
    EXPECT_EQ(rpc_port_proxy_connect(proxy, "svc", "port"), mode == 0700 ? -EIO : -EACCES) << mode;
    rpc_port_proxy_destroy(proxy);
    event_handler_h handler = nullptr;
    const int error = event_add_event_handler(
        "a", [](const char *, bundle_h, void *) {}, nullptr, &handler);
    EXPECT_EQ(error, mode == 0700 ? 0 : -EACCES) << mode;
    if (error == 0) event_remove_event_handler(handler);
  }
}

TEST(HostMainLoop, StepsTimersAndPosts) {
  MainLoop loop;
  std::vector<std::string> log;
  EXPECT_EQ(loop.step(0), 0);
  EXPECT_EQ(loop.step(1), 0);
  loop.post([&] {
    log.push_back("first");
    loop.post([&] { log.push_back("second"); });
  });
  EXPECT_EQ(loop.step(0), 1) << "a posted task is due at once";
  const auto removed = loop.post([&] { log.push_back("removed"); });
  loop.remove(removed);
  loop.remove(removed);
  const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
  loop.add_timer(std::chrono::milliseconds(20), [&] {
    log.push_back(std::chrono::steady_clock::now() >= due ? "timer" : "early");
    loop.quit();
  });
  EXPECT_EQ(loop.run(), 0);
  EXPECT_EQ(log, (std::vector<std::string>{"first", "second", "timer"}));
  EXPECT_EQ(loop.step(0), 0) << "nothing is left of the quit";
}

TEST(HostMainLoop, DescriptorIsReadableWhileSomethingIsDue) {
  MainLoop loop;
  const auto readable = [&loop](int timeout_ms) {
    pollfd entry = {loop.descriptor(), POLLIN, 0};
    return poll(&entry, 1, timeout_ms) == 1;
  };
  EXPECT_FALSE(readable(0));
  loop.post([] {});
  EXPECT_TRUE(readable(10000));
  EXPECT_EQ(loop.step(0), 1);
  EXPECT_FALSE(readable(0));
}

TEST(HostMainLoop, QuitBeforeRun) {
  korvane_host_main_loop_quit();
  EXPECT_EQ(korvane_host_main_loop_run(), 0);
  EXPECT_EQ(korvane_host_main_loop_step(0), 0);
  EXPECT_GE(korvane_host_main_loop_fd(), 0);
}

}  // namespace
