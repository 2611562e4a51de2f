// The device directory and the packages in it.
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "app_event.h"
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
  void write_package(const std::string &id, const std::string &json) const {
    std::ofstream(file_of(id), std::ios::binary) << json;
  }
  void install(const std::string &id) const {
    write_package(id, R"({"version": "1", "id": ")" + id + "\"}");
  }
  /** Finds a package and reads its version. */
  static int look_up(const std::string &id) {
    package_info_h package = nullptr;
    if (const int error = package_info_create(id.c_str(), &package)) return error;
    char *version = nullptr;
    const int error = package_info_get_version(package, &version);
    free(version);
    package_info_destroy(package);
    return error;
  }
  /** The IDs of all packages, one after the other. */
  static std::string ids_of_all() {
    std::string ids;
    const auto collect = [](package_info_h package, void *all) {
      char *id = nullptr;
      package_info_get_package(package, &id);
      *static_cast<std::string *>(all) += id;
      free(id);
      return true;
    };
    EXPECT_EQ(package_manager_foreach_package_info(collect, &ids), 0);
    return ids;
  }
};

TEST_F(HostDeviceTest, FaultyPackageFileIsAnErrorAndHidesNoOther) {
  install("a");
  install("z");
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
    write_package("bad", file);
    EXPECT_EQ(look_up("bad"), -EIO) << file.substr(0, 60);
    EXPECT_EQ(ids_of_all(), "az") << file.substr(0, 60);
  }
}

TEST_F(HostDeviceTest, NamesDoNotLeadOutOfTheFolder) {
  install("../b");
  for (const char *name : {"", "../b", "..", "/a", "a/"}) {
    EXPECT_EQ(look_up(name), -EINVAL) << name;
  }
}

TEST_F(HostDeviceTest, OnlyAMissingFileIsAPackageThatIsNotInstalled) {
  install("a");
  fs::create_directory(file_of("folder"));
  fs::create_symlink(file_of("loop"), file_of("loop"));
  ASSERT_EQ(mkfifo(file_of("pipe").c_str(), 0600), 0);
  for (const std::string &id :
       {std::string("folder"), std::string("loop"), std::string("pipe"), std::string(300, 'a')}) {
    EXPECT_EQ(look_up(id), -EIO) << id;
  }
  EXPECT_EQ(look_up("missing"), kNotInstalled);
  for (const fs::path &device : {device_ / "missing", fs::path("/dev/null")}) {
    setenv("KORVANE_DEVICE", device.c_str(), 1);
    EXPECT_EQ(look_up("a"), kNotInstalled) << device;
  }
}

TEST_F(HostDeviceTest, RunFolderThatOtherUsersReachIsRefused) {
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
