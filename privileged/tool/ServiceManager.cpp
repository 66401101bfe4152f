#include "privileged/tool/ServiceManager.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <sstream>
#include <thread>

#include "posix/Descriptor.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds timeToRun{10};
constexpr seconds timeForACommand{15};
constexpr milliseconds pollInterval{50};
constexpr milliseconds stability{500};

const char* program() { return ::access("/usr/bin/systemctl", X_OK) == 0 ? "/usr/bin/systemctl" : "/bin/systemctl"; }

milliseconds until(steady_clock::time_point deadline) {
  return std::max(milliseconds{0}, std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now()));
}

// The child inherits only standard input, output and error: the output goes to `output`, the other two to /dev/null.
std::optional<pid_t> spawn(const std::vector<std::string>& words, int output) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  std::array<char*, 2> environment{path.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  ::posix_spawnattr_setsigdefault(&attributes, &defaults);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int error = ::posix_spawn(&child, program(), &actions, &attributes, arguments.data(), environment.data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  return error == 0 ? std::optional(child) : std::nullopt;
}

// Reads what the child writes until it ends or the deadline has passed.
std::string readUntil(int input, steady_clock::time_point deadline) {
  std::string text;
  std::array<char, 512> buffer{};
  for (;;) {
    pollfd waiting{.fd = input, .events = POLLIN, .revents = 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(until(deadline).count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return text;
    const auto got = ::read(input, buffer.data(), buffer.size());
    if (got <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

// The exit status, or nothing when the child had to be killed.
std::optional<int> statusOf(pid_t child, steady_clock::time_point deadline) {
  const posix::Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  pollfd waiting{.fd = process.get(), .events = POLLIN, .revents = 0};
  if (!process || ::poll(&waiting, 1, static_cast<int>(until(deadline).count())) <= 0) ::kill(child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

struct Answer {
  std::optional<int> status;
  std::string text;
};

Answer systemctl(std::vector<std::string> words) {
  giveSignOfLife();
  words.insert(words.begin(), {"systemctl", "--no-ask-password", "--system"});
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const posix::Descriptor reading(ends[0]);
  posix::Descriptor writing(ends[1]);
  const auto deadline = steady_clock::now() + timeForACommand;
  const auto child = spawn(words, writing.get());
  writing = posix::Descriptor();
  if (!child) return {};
  auto text = readUntil(reading.get(), deadline);
  return {.status = statusOf(*child, deadline), .text = std::move(text)};
}

}  // namespace

bool Service::stop() const {
  systemctl({"stop", _unit});
  if (state().mainProcess == 0) return true;
  systemctl({"kill", "--signal=SIGKILL", _unit});
  systemctl({"stop", _unit});
  return state().mainProcess == 0;
}

bool Service::startAnew() const {
  const auto deadline = steady_clock::now() + timeToRun;
  if (systemctl({"daemon-reload"}).status != 0) return false;
  systemctl({"reset-failed", _unit});  // an old failure must neither be taken for a new one nor forbid the start
  if (systemctl({"start", "--no-block", _unit}).status != 0) return false;
  while (steady_clock::now() < deadline) {
    const auto now = state();
    if (now.active == "failed") return false;
    if (now.isRunning() && staysRunning(now.mainProcess)) return true;
    std::this_thread::sleep_for(pollInterval);
  }
  return false;
}

bool Service::staysRunning(pid_t process) const {
  std::this_thread::sleep_for(stability);
  const auto later = state();
  return later.isRunning() && later.mainProcess == process;
}

Service::State Service::state() const {
  State state;
  std::istringstream lines(systemctl({"show", "--property=ActiveState", "--property=MainPID", _unit}).text);
  for (std::string line; std::getline(lines, line);) {
    const auto equals = line.find('=');
    if (equals == std::string::npos) continue;
    const auto value = line.substr(equals + 1);
    if (line.starts_with("ActiveState=")) state.active = value;
    if (line.starts_with("MainPID=")) std::from_chars(value.data(), value.data() + value.size(), state.mainProcess);
  }
  return state;
}

}  // namespace AssistantTool
