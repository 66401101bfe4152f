#pragma once
// For test programs that run root's tool: the tool keeps notes below /var/lib, and not the machine's must it be. From the
// start of the program on, changes there go to a mount name space that ends with it.
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace tests {

class PrivateState : public ::testing::Environment {
 public:
  void SetUp() override {
    if (::geteuid() != 0) return;
    const bool isPrivate = ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && (mountOver() || mountAnew());
    if (isPrivate) _isPrivate = true;
    if (!isPrivate) GTEST_SKIP() << "root's tool would change /var/lib, and no name space can be made";
  }

  // Forgets what earlier tests of the program left.
  static void clear() {
    if (_isPrivate) std::filesystem::remove_all("/var/lib/kelto");
  }

 private:
  // All that is there stays visible.
  static bool mountOver() {
    std::string folder = "/tmp/kelto-state-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) return false;
    bool done = ::mount("test", folder.c_str(), "tmpfs", 0, "mode=755") == 0;
    if (done) {
      const auto upper = folder + "/upper";
      const auto work = folder + "/work";
      const auto options = "lowerdir=/var/lib,upperdir=" + upper + ",workdir=" + work;
      done = ::mkdir(upper.c_str(), 0755) == 0 && ::mkdir(work.c_str(), 0755) == 0 &&
             ::mount("overlay", "/var/lib", "overlay", 0, options.c_str()) == 0;
      ::umount2(folder.c_str(), MNT_DETACH);
    }
    ::rmdir(folder.c_str());
    return done;
  }
  static bool mountAnew() { return ::mount("test", "/var/lib", "tmpfs", 0, "mode=755") == 0; }

  static inline bool _isPrivate = false;
};

inline ::testing::Environment* const privateState = ::testing::AddGlobalTestEnvironment(new PrivateState);

}  // namespace tests
