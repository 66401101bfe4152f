#include "sdk/InstallerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

#include "foundation/plist/PropertyList.h"
#include "protocol/ParentWindow.h"

extern char** environ;

namespace sdk {
namespace {

struct SpawnSettings {
  SpawnSettings() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~SpawnSettings() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

// The installer outlives the application that starts it, and its folder: nothing of that process may stay with it.
void detach(SpawnSettings& settings) {
  posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);
  posix_spawn_file_actions_addchdir_np(&settings.actions, "/");
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&settings.attributes, &none);
  posix_spawnattr_setsigdefault(&settings.attributes, &all);
  posix_spawnattr_setflags(&settings.attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

// This process's environment, with the parent window that `command` names and no other. `parent` holds that variable.
std::vector<char*> environmentFor(const InstallerCommand& command, std::string& parent) {
  const std::string start = std::string(protocol::parentWindowVariable) + "=";
  std::vector<char*> variables;
  for (char** each = environ; each != nullptr && *each != nullptr; ++each)
    if (!std::string_view(*each).starts_with(start)) variables.push_back(*each);
  parent = start + command.parentWindow;
  if (!command.parentWindow.empty()) variables.push_back(parent.data());
  variables.push_back(nullptr);
  return variables;
}

int exitStatusOf(int pidfd) {
  siginfo_t end{};
  const int result = ::waitid(P_PIDFD, static_cast<id_t>(pidfd), &end, WEXITED | WNOHANG);
  return result == 0 && end.si_code == CLD_EXITED ? end.si_status : -1;
}

}  // namespace

std::optional<InstallerBundle> readInstallerBundle(const std::string& path, std::string& cause) {
  const std::string list = path + "/Contents/Info.plist";
  std::ifstream file(list, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();  // an iterator would throw when reading fails
  cause = "the file cannot be read";
  const auto value = file ? foundation::PropertyList::parse(bytes.str(), &cause) : std::nullopt;
  const auto* dictionary = value ? value->as<foundation::PropertyList::Dictionary>() : nullptr;
  const auto text = [&](const char* key) -> const std::string* {
    const auto place =
        dictionary != nullptr ? dictionary->find(key) : foundation::PropertyList::Dictionary::const_iterator();
    return dictionary != nullptr && place != dictionary->end() ? place->second.as<std::string>() : nullptr;
  };
  const auto* executable = text("CFBundleExecutable");
  const auto* identifier = text("CFBundleIdentifier");
  if (executable != nullptr && identifier != nullptr)
    return InstallerBundle{.program = path + "/Contents/Linux/" + *executable, .identifier = *identifier};
  if (dictionary != nullptr) cause = "it lacks CFBundleExecutable or CFBundleIdentifier";
  cause = list + ": " + cause;
  return std::nullopt;
}

bool InstallerProcess::start(sd_event* loop, const InstallerCommand& command, Ended ended, std::string& cause) {
  const auto& program = command.program;
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const auto& argument : command.arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  std::string parent;
  const auto environment = environmentFor(command, parent);

  SpawnSettings settings;
  detach(settings);
  int error =
      posix_spawn(&_number, program.c_str(), &settings.actions, &settings.attributes, words.data(), environment.data());
  if (error == 0) {
    _ended = std::move(ended);
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, _number, 0U));
    error = pidfd < 0 ? errno : watch(loop, pidfd);
  }
  if (error != 0) cause = program + " cannot be started: " + std::strerror(error);
  return error == 0;
}

int InstallerProcess::watch(sd_event* loop, int pidfd) {
  const auto onEnd = [](sd_event_source* source, int descriptor, std::uint32_t /*events*/, void* data) {
    sd_event_source_set_enabled(source, SD_EVENT_OFF);
    static_cast<InstallerProcess*>(data)->_ended(exitStatusOf(descriptor));
    return 0;
  };
  sd_event_source* source = nullptr;
  const int result = sd_event_add_io(loop, &source, pidfd, EPOLLIN, onEnd, this);
  if (result < 0) {
    ::close(pidfd);
    return -result;
  }
  sd_event_source_set_io_fd_own(source, 1);
  _watch.reset(source);
  return 0;
}

}  // namespace sdk
