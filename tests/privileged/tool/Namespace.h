#pragma once
// For tests: file systems of the test's own, in a mount name space that ends with the test program.
#include <sched.h>
#include <sys/mount.h>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {

class NamespaceTest : public ToolTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "needs root and a mount name space";
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    // The test's own folder is a volume too, so that nothing looks for a Trash on the machine's.
    volume("");
    makeResultFile();
  }
  void TearDown() override {
    for (auto mounted = _mounts.rbegin(); mounted != _mounts.rend(); ++mounted) ::umount2(mounted->c_str(), MNT_DETACH);
  }
  // A file system in memory at folder/`name`.
  fs::path volume(const std::string& name, const std::string& options = "mode=755") {
    const auto path = folder / name;
    fs::create_directories(path);
    EXPECT_EQ(::mount("test", path.c_str(), "tmpfs", 0, options.c_str()), 0) << std::strerror(errno);
    _mounts.push_back(path);
    return path;
  }
  void bind(const fs::path& what, const fs::path& where) {
    EXPECT_EQ(::mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
    _mounts.push_back(where);
  }
  void makeReadOnly(const fs::path& path) {
    EXPECT_EQ(::mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << std::strerror(errno);
  }
  bool overlay(const fs::path& lower, const fs::path& where) {
    const auto box = volume(where.filename().string() + "-upper");
    fs::create_directories(box / "upper");
    fs::create_directories(box / "work");
    fs::create_directories(where);
    const auto options =
        "lowerdir=" + lower.string() + ",upperdir=" + (box / "upper").string() + ",workdir=" + (box / "work").string();
    if (::mount("overlay", where.c_str(), "overlay", 0, options.c_str()) != 0) return false;
    _mounts.push_back(where);
    return true;
  }
  // An account for the invoking user, with a home in the test's folder.
  static constexpr uid_t invokingUser = 12345;
  static constexpr gid_t invokingGroup = 12346;
  fs::path home() const { return folder / "home"; }
  void becomeAnotherUsersTool() {
    setHome(home());
    fs::create_directory(home());
    giveToUser(home());
  }
  // The account of the invoking user, whose home is `home` from now on.
  void setHome(const fs::path& home) {
    const auto number = std::to_string(invokingUser);
    if (_accounts.empty()) {
      _accounts = read("/etc/passwd");
      write(folder / "passwd", "");
      bind(folder / "passwd", "/etc/passwd");
      fs::permissions(folder, fs::perms(0755));
      giveToUser(result.parent_path());
      giveToUser(result);
      environment.push_back(std::string(protocol::invokingUserVariable) + "=" + number);
    }
    write(folder / "passwd",
          _accounts + "tester:x:" + number + ":" + std::to_string(invokingGroup) + "::" + home.string() + ":/bin/sh\n");
  }
  static void giveToUser(const fs::path& path) { EXPECT_EQ(::lchown(path.c_str(), invokingUser, invokingGroup), 0); }

 private:
  std::vector<fs::path> _mounts;
  std::string _accounts;
};

}  // namespace tests::tool
