// The device directory, the packages in it, and the log.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "app.h"
#include "app_event.h"
#include "device/device.h"
#include "dlog.h"
#include "host_fixture.h"
#include "package.h"

using namespace korvane::host;
namespace fs = std::filesystem;

namespace {

constexpr int kNotInstalled = static_cast<int>(0xFEEB0071U);

class HostDeviceTest : public HostTest {
 protected:
  HostDeviceTest() { fs::create_directory(device_ / "packages"); }

  fs::path file_of(const std::string &id) const { return device_ / "packages" / (id + ".json"); }
  void install(const std::string &id, const std::string &json) const {
    std::ofstream(file_of(id), std::ios::binary) << json;
  }
  /** The version of a package, or the error number. */
  static std::string look_up(const char *id) {
    package_info_h package = nullptr;
    if (const int error = package_info_create(id, &package)) return std::to_string(error);
    const std::string version = version_of(package);
    package_info_destroy(package);
    return version;
  }
  static std::string version_of(package_info_h package) {
    char *version = nullptr;
    if (const int error = package_info_get_version(package, &version)) return std::to_string(error);
    const std::string result = version;
    free(version);
    return result;
  }
  /** The IDs of all packages, up to a given one. */
  static std::string ids_of_all(const std::string &enough = "") {
    std::pair ids(std::string(), enough);
    const auto collect = [](package_info_h package, void *user_data) {
      auto &[all, last] = *static_cast<decltype(ids) *>(user_data);
      char *id = nullptr;
      package_info_get_package(package, &id);
      all += id;
      const bool goes_on = id != last;
      free(id);
      return goes_on;
    };
    EXPECT_EQ(package_manager_foreach_package_info(collect, &ids), 0);
    return ids.first;
  }
};

TEST_F(HostDeviceTest, FaultyPackageFileIsAnErrorAndLeftOut) {
  install("a", R"({"id": "a", "version": "1"})");
  install("z", R"({"id": "z", "version": "1", "metadata": {"key": "value"}})");
  const std::string files[] = {"",
                               "null",
                               R"({"id": "bad"})",
                               R"({"version": "1"})",
                               R"({"id": "other", "version": "1"})",
                               R"({"id": "bad", "version": ["1"]})",
                               R"({"id": "bad", "version": "1", "metadata": []})",
                               R"({"id": "bad", "version": "1", "metadata": {"key": 1}})",
                               R"({"id": "bad", "version": "1"} rest)",
                               "{\"id\": \"bad\", \"version\": \"\xFF\"}",
                               R"({"id": "bad", "version": "1"})" + std::string(1 << 20, ' ')};
  for (const std::string &file : files) {
    install("bad", file);
    EXPECT_EQ(look_up("bad"), std::to_string(-EIO)) << file.substr(0, 60);
    EXPECT_EQ(ids_of_all(), "az") << file.substr(0, 60);
  }
  EXPECT_EQ(ids_of_all("a"), "a") << "as far as wanted";
  const std::string deep(100000, '[');
  const std::string high(100000, ']');
  install("bad", R"({"id": "bad", "more": [{"id": 1}, )" + deep + high + R"(], "version": "1"})");
  EXPECT_EQ(look_up("bad"), "1");
}

TEST_F(HostDeviceTest, LookUpByName) {
  install("a", R"({"id": "a", "version": "1"})");
  fs::create_directory(file_of("folder"));
  ASSERT_EQ(mkfifo(file_of("pipe").c_str(), 0600), 0);
  std::ofstream(device_ / "b.json") << R"({"id": "b", "version": "1"})";
  EXPECT_EQ(look_up("a"), "1");
  EXPECT_EQ(look_up("missing"), std::to_string(kNotInstalled));
  for (const char *name : {"", "../b", "..", "/a", "a/", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(look_up(name), std::to_string(-EINVAL)) << testing::PrintToString(name);
  }
  EXPECT_EQ(look_up("folder"), std::to_string(-EIO));
  EXPECT_EQ(look_up("pipe"), std::to_string(-EIO));
  app_info_h app = nullptr;
  EXPECT_EQ(app_info_create("a", &app), -EIO);
}

TEST_F(HostDeviceTest, OnlyAMissingFileIsAPackageThatIsNotInstalled) {
  fs::create_symlink(file_of("loop"), file_of("loop"));
  EXPECT_EQ(look_up("loop"), std::to_string(-EIO));
  EXPECT_EQ(look_up(std::string(300, 'a').c_str()), std::to_string(-EIO));
  setenv("KORVANE_DEVICE", "/dev/null", 1);
  EXPECT_EQ(look_up("a"), std::to_string(kNotInstalled));
}

TEST_F(HostDeviceTest, NoPackageIsInstalledWithoutADevice) {
  install("a", R"({"id": "a", "version": "1"})");
  setenv("KORVANE_DEVICE", (device_ / "missing").c_str(), 1);
  EXPECT_EQ(look_up("a"), std::to_string(kNotInstalled));
  unsetenv("KORVANE_DEVICE");
  EXPECT_EQ(look_up("a"), std::to_string(kNotInstalled));
}

TEST_F(HostDeviceTest, ResourcesOfTheCallingApplication) {
  setenv("KORVANE_APP_ID", "a", 1);
  EXPECT_EQ(app_get_resource_path(), nullptr);
  const fs::path folder = Device::current().resource_directory("a");
  fs::create_directories(folder);
  char *path = app_get_resource_path();
  EXPECT_EQ(path, folder.string() + "/");
  free(path);
  unsetenv("KORVANE_APP_ID");
  EXPECT_EQ(app_get_resource_path(), nullptr);
}

TEST_F(HostDeviceTest, APackageIsReadWhenItIsAskedFor) {
  install("a", R"({"id": "a", "version": "1"})");
  package_info_h package = nullptr;
  ASSERT_EQ(package_info_create("a", &package), 0);
  install("a", R"({"id": "a", "version": "2"})");
  EXPECT_EQ(version_of(package), "2");
  fs::remove(file_of("a"));
  EXPECT_EQ(version_of(package), std::to_string(-EIO));
  package_info_destroy(package);
}

TEST_F(HostDeviceTest, EveryAllocationMayFail) {
  install("a", R"({"id": "a", "version": "1", "metadata": {"key": "value"}, "more": [[1], {}]})");
  ScarceMemory::tell([] {
    app_info_h app = nullptr;
    int error = 0;
    ScarceMemory::in_platform([&] { error = app_info_create("a", &app); });
    EXPECT_TRUE(error == 0 || error == -EIO) << error;
    if (error == 0) app_info_destroy(app);
  });
}

TEST_F(HostDeviceTest, RunFolderThatOthersReachIsRefused) {
  const auto subscribe = [] {
    event_handler_h handler = nullptr;
    return event_add_event_handler(
        "a", [](const char *, bundle_h, void *) {}, nullptr, &handler);
  };
  const fs::path run = device_ / "run";
  fs::create_directory(run);
  for (const auto reach : {fs::perms::group_exec, fs::perms::others_exec}) {
    fs::permissions(run, fs::perms::owner_all | reach);
    EXPECT_EQ(subscribe(), -EACCES);
  }
  fs::permissions(run, fs::perms::owner_all);
  fs::rename(run, device_ / "elsewhere");
  fs::create_directory_symlink("elsewhere", run);
  EXPECT_EQ(subscribe(), -EACCES);
}

}  // namespace
