// The contract of the graded system log, over a /dev/log of the test's own.
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>

#include "platform/linux/LoggingHost.h"
#include "posix/Descriptor.h"
#include "tests/platform/contracts/LeveledSystemLogContract.h"

namespace {

// A mount namespace for the rest of this program, and a /dev for as long as this object lives.
class OwnDevices {
 public:
  OwnDevices()
      : _isMounted(::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   ::mount("kelto", "/dev", "tmpfs", 0, nullptr) == 0) {}
  ~OwnDevices() {
    ::closelog();
    if (_isMounted) ::umount2("/dev", MNT_DETACH);
  }
  OwnDevices(const OwnDevices&) = delete;
  OwnDevices& operator=(const OwnDevices&) = delete;
  [[nodiscard]] bool areThere() const { return _isMounted; }

 private:
  const bool _isMounted;
};

class RealSystemLog {
 public:
  RealSystemLog() {
    if (!_devices.areThere()) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    EXPECT_EQ(::bind(_receiver.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }

  platform::LeveledSystemLog& log() { return _log; }

  // "<priority>date name: text".
  [[nodiscard]] std::vector<std::pair<int, std::string>> lines() const {
    std::vector<std::pair<int, std::string>> all;
    char buffer[4096];
    for (ssize_t length = 0; (length = ::recv(_receiver.get(), buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
      const std::string datagram(buffer, static_cast<std::size_t>(length));
      all.emplace_back(std::stoi(datagram.substr(1)) & LOG_PRIMASK, datagram.substr(datagram.find(": ") + 2));
    }
    return all;
  }

 private:
  const OwnDevices _devices;
  const posix::Descriptor _receiver{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  platform::Linux::LeveledSystemLog _log;
};

}  // namespace

namespace tests::contracts {

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, LeveledSystemLogContract, RealSystemLog);

}  // namespace tests::contracts
