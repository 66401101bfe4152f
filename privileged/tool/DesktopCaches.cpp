#include "privileged/tool/DesktopCaches.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <vector>

#include "privileged/tool/Confinement.h"
#include "privileged/tool/DesktopPlace.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Rights.h"

namespace AssistantTool {
namespace {

constexpr unsigned longestSeconds = 20;  // of each program: then a signal ends it

void closeStandardFiles() {
  const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int each : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nowhere, each);
}

void waitFor(pid_t process) {
  while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) continue;
}

void run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  const std::array<char*, 2> environment{path.data(), nullptr};
  const pid_t process = ::fork();
  if (process > 0) return waitFor(process);
  if (process < 0) return;
  ::alarm(longestSeconds);
  ::execve(arguments.front(), arguments.data(), environment.data());
  ::_exit(EXIT_FAILURE);
}

[[noreturn]] void updateWhenTold(int go, const std::string& dataFolder) {
  closeStandardFiles();
  char word = 0;
  if (::read(go, &word, 1) != 1) ::_exit(EXIT_SUCCESS);
  try {
    giveUpCapabilitiesAndSockets();
    static_cast<void>(confineTo(DesktopPlace(dataFolder, std::nullopt).folders(), Programs::areRun));
  } catch (const Failure&) {
    ::_exit(EXIT_FAILURE);
  }
  run({"/usr/bin/update-desktop-database", "-q", dataFolder + "/applications"});
  const auto icons = dataFolder + "/" + iconFolder;
  // Without a cache, programs look for themselves; one that is made would hide what others add later.
  if (::access((icons + "/icon-theme.cache").c_str(), F_OK) == 0)
    run({"/usr/bin/gtk-update-icon-cache", "-q", "-f", "-t", "-i", icons});
  ::_exit(EXIT_SUCCESS);
}

}  // namespace

DesktopCaches::DesktopCaches(const std::string& dataFolder) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  const posix::Descriptor end(ends[0]);
  _go = posix::Descriptor(ends[1]);
  _process = ::fork();
  if (_process != 0) return;
  _go.reset();
  updateWhenTold(end.get(), dataFolder);
}

DesktopCaches::~DesktopCaches() {
  _go.reset();
  if (_process > 0) waitFor(_process);
}

void DesktopCaches::update() {
  if (_process <= 0) return;
  const char word = 'u';
  if (::write(_go.get(), &word, 1) != 1) return;
  waitFor(_process);
  _process = -1;
}

}  // namespace AssistantTool
