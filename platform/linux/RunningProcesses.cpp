#include "platform/linux/RunningProcesses.h"

#include <dirent.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <memory>

#include "foundation/text/Path.h"

namespace platform::Linux {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// Empty when it cannot be read: a process of the kernel, of another user, or one that has ended.
std::string programOf(pid_t process) {
  char program[PATH_MAX + 16];
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), program, sizeof program);
  if (length <= 0 || length == sizeof program) return {};
  return {program, static_cast<std::size_t>(length)};
}

// By number: the C library's own declaration of this call cannot be linked from C++ (its header forgets extern "C").
Descriptor handleOf(pid_t process) { return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0))); }

std::optional<RunningProcess> processOfBundle(pid_t number) {
  // Most programs are in no bundle, and are passed over before a descriptor is spent on them.
  if (programOf(number).find(".app/Contents/") == std::string::npos) return std::nullopt;
  RunningProcess process{number, handleOf(number), {}};
  if (!process.handle) return std::nullopt;
  auto bundle = bundleOfProgram(programOf(number));
  // The number was this process's when its program was read only if it still is.
  if (!bundle || !isRunning(process)) return std::nullopt;
  process.bundlePath = std::move(*bundle);
  return process;
}

bool isProgramFolder(std::string_view pathInBundle) {
  return pathInBundle.starts_with("/Contents/Linux/") || pathInBundle.starts_with("/Contents/MacOS/");
}

}  // namespace

bool isRunning(const RunningProcess& process) {
  pollfd ended{process.handle.get(), POLLIN, 0};
  return ::poll(&ended, 1, 0) == 0;
}

std::optional<std::string> bundleOfProgram(std::string_view path) {
  for (std::string folder = foundation::Path::deletingLastComponent(path); folder.size() > 1;
       folder = foundation::Path::deletingLastComponent(folder)) {
    if (!folder.ends_with(".app") || ::access((folder + "/Contents/Info.plist").c_str(), F_OK) != 0) continue;
    if (!isProgramFolder(path.substr(folder.size()))) return std::nullopt;
    return folder;
  }
  return std::nullopt;
}

std::vector<RunningProcess> processesOfBundles() {
  std::vector<RunningProcess> processes;
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir("/proc"));
  if (!folder) return processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    pid_t number = 0;
    const auto end = name.data() + name.size();
    if (std::from_chars(name.data(), end, number).ptr != end || number == ::getpid()) continue;
    if (auto process = processOfBundle(number)) processes.push_back(std::move(*process));
  }
  return processes;
}

}  // namespace platform::Linux
