#pragma once
// For tests: where a Library Server can be upgraded and nothing of the machine's is touched. A root folder in which the
// machine's programs are, and a service manager that knows one service and whether it runs; what lies there as /Library and
// as the units' folder are folders of the test's own, on the file system under test.
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {

class ServerRoot {
 public:
  // `library`, `units` and `state`, which is /var/lib there, are made where they are missing; what is in a folder of
  // `seen`, but in no mount below it, has its own path inside as well.
  ServerRoot(const fs::path& root, const fs::path& library, const fs::path& units, const fs::path& state,
             const std::vector<fs::path>& seen)
      : _root(root) {
    if (!isThere(root)) makeSystem();
    for (const char* name : {"usr", "proc", "dev"}) bind(fs::path("/") / name, root / name);
    bind(root / "systemctl", root / "usr/bin/systemctl");
    fs::create_directories(library);
    fs::create_directories(units);
    fs::create_directories(state);
    bind(library, root / "Library");
    bind(units, root / "etc/systemd/system");
    bind(state, root / "var/lib");
    for (const auto& folder : seen) {
      fs::create_directories(root / folder.relative_path());
      bind(folder, root / folder.relative_path());
    }
  }
  // Detached, because a service manager that a killed tool had started may still be ending.
  ~ServerRoot() {
    for (auto mounted = _mounts.rbegin(); mounted != _mounts.rend(); ++mounted) ::umount2(mounted->c_str(), MNT_DETACH);
  }
  ServerRoot(const ServerRoot&) = delete;
  ServerRoot& operator=(const ServerRoot&) = delete;

 private:
  // A server whose first line says that it does not run fails when it is started.
  void makeSystem() const {
    for (const char* name : {"usr", "proc", "dev", "Library", "etc/systemd/system", "var/lib"})
      fs::create_directories(_root / name);
    for (const char* name : {"bin", "sbin", "lib", "lib64"}) fs::create_symlink(std::string("usr/") + name, _root / name);
    write(_root / "systemctl",
          "#!/bin/sh\nstate=inactive\n[ -e /failed ] && state=failed\ncase \"$*\" in\n"
          "*' show '*) [ -e /state ] && echo ActiveState=active && echo MainPID=77 || echo ActiveState=$state ;;\n"
          "*' start '*) read -r line <'/Library/Application Support/Kelto/KeltoLibraryServer'\n"
          "  case $line in *'does not run') : >/failed ;; *) : >/state ;; esac ;;\n"
          "*' stop '* | *' kill '*) rm -f /state ;;\n"
          "*' reset-failed '*) rm -f /failed ;;\nesac\n");
    fs::permissions(_root / "systemctl", fs::perms(0755));
  }
  void bind(const fs::path& what, const fs::path& where) {
    EXPECT_EQ(::mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr), 0) << where << std::strerror(errno);
    _mounts.push_back(where);
  }

  fs::path _root;
  std::vector<fs::path> _mounts;
};

}  // namespace tests::tool
