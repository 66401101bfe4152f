#pragma once
// For programs that run root's tool: it keeps notes below /var/lib, which must not be the machine's.
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace tests {

// All that is there stays visible.
inline bool mountOverState() {
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

// From now on, changes to /var/lib go to a mount name space that ends with this process and its children. False if there
// can be none.
inline bool makeStatePrivate() {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         (mountOverState() || ::mount("test", "/var/lib", "tmpfs", 0, "mode=755") == 0);
}

}  // namespace tests
