#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "platform/linux/SystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

// Logs `line` in a mount namespace of its own and returns what arrives at /dev/log; empty if that cannot be set up.
std::string lineInTheSystemLog(const tests::TemporaryFolder& folder, const std::string& line) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("kelto", "/dev", "tmpfs", 0, nullptr) != 0)
    return {};
  const int receiver = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  if (::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return {};
  platform::Linux::SystemLog("installer").log(line);
  char buffer[4096];
  const ssize_t length = ::recv(receiver, buffer, sizeof buffer, MSG_DONTWAIT);
  tests::writeFile(folder.path("pid"), std::to_string(::getpid()));
  return {buffer, static_cast<std::size_t>(length < 0 ? 0 : length)};
}

TEST(SystemLog, WritesTheLineToTheSystemLogAsTheUsersNotice) {
  if (::geteuid() != 0) GTEST_SKIP() << "a /dev/log of one's own needs root";
  const tests::TemporaryFolder folder;
  const pid_t child = ::fork();
  if (child == 0) {
    tests::writeFile(folder.path("datagram"), lineInTheSystemLog(folder, "100%s\nforged"));
    ::_exit(0);
  }
  ::waitpid(child, nullptr, 0);
  const std::string datagram = tests::readFile(folder.path("datagram"));
  const std::string process = tests::readFile(folder.path("pid"));
  if (process.empty()) GTEST_SKIP() << "no mount namespace to be had here";
  EXPECT_TRUE(datagram.starts_with("<13>")) << datagram;  // LOG_USER | LOG_NOTICE
  EXPECT_TRUE(datagram.ends_with(" installer[" + process + "]: 100%s\\x0aforged")) << datagram;
}

}  // namespace
}  // namespace platform::Linux
