#include <fcntl.h>
#include <poll.h>

#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

struct Sightings {
  std::uint64_t looks = 0;
  std::uint64_t missing = 0;  // nothing under the bundle's path
  std::uint64_t torn = 0;     // files missing, or of two versions
};

std::string readIn(int directory, const char* name) {
  const int file = ::openat(directory, name, O_RDONLY | O_CLOEXEC);
  char text[64];
  const auto length = file < 0 ? -1 : ::read(file, text, sizeof text);
  if (file >= 0) ::close(file);
  return length < 0 ? std::string("missing") : std::string(text, static_cast<std::size_t>(length));
}

// A bundle that was swapped out while we looked at it is being deleted; that is expected.
bool isStillThere(int directory, const std::string& app) {
  struct stat held {};
  struct stat now {};
  return ::fstat(directory, &held) == 0 && ::stat(app.c_str(), &now) == 0 && held.st_ino == now.st_ino;
}

void look(const std::string& app, Sightings& sightings) {
  ++sightings.looks;
  const int directory = ::open(app.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    ++sightings.missing;
    return;
  }
  const auto one = readIn(directory, "Contents/Info.plist");
  const auto other = readIn(directory, "Contents/Resources/version");
  if ((one != other || one == "missing") && isStillThere(directory, app)) ++sightings.torn;
  ::close(directory);
}

// Looks until `stop` is closed at its other end, then reports there.
[[noreturn]] void watch(const std::string& app, int stop) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  Sightings sightings;
  pollfd told{.fd = stop, .events = POLLIN, .revents = 0};
  while (::poll(&told, 1, 0) == 0) look(app, sightings);
  ::_exit(::write(stop, &sightings, sizeof sightings) == sizeof sightings ? 0 : 1);
}

class ThousandReplacements : public ToolTest {
 protected:
  // In memory where there is such a place: it is the order of the calls that counts here, not what the disk does.
  ThousandReplacements() : ToolTest(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path()) {}
  static void makeVersion(const fs::path& app, int version) {
    write(app / "Contents/Info.plist", std::to_string(version));
    write(app / "Contents/Resources/version", std::to_string(version));
  }
};

TEST_F(ThousandReplacements, NeverShowAMissingOrTornBundle) {
  const auto app = folder / "Applications/App.app";
  makeVersion(app, 0);
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t watcher = ::fork();
  if (watcher == 0) {
    ::close(ends[0]);
    watch(app, ends[1]);
  }
  ::close(ends[1]);
  for (int version = 1; version <= 1000; ++version) {
    makeVersion(folder / "New.app", version);
    fs::resize_file(result, 0);
    const auto answer = replace(app, folder / "New.app");
    ASSERT_EQ(answer.status, 0) << answer.text;
  }
  ASSERT_EQ(::shutdown(ends[0], SHUT_WR), 0);
  Sightings sightings;
  ASSERT_EQ(::recv(ends[0], &sightings, sizeof sightings, MSG_WAITALL), ssize_t{sizeof sightings});
  ::close(ends[0]);
  ::waitpid(watcher, nullptr, 0);
  EXPECT_EQ(read(app / "Contents/Info.plist"), "1000");
  EXPECT_GT(sightings.looks, 1000U);
  EXPECT_EQ(sightings.missing, 0U) << "of " << sightings.looks;
  EXPECT_EQ(sightings.torn, 0U) << "of " << sightings.looks;
}

}  // namespace
}  // namespace tests::tool
