#include "platform/linux/terminal/HelperProgram.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "posix/Descriptor.h"

namespace platform::Linux {
namespace {

// The program ends by the signals that this one keeps for itself.
class Start {
 public:
  explicit Start(int output) {
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  }
  ~Start() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
};

std::string readToTheEnd(int descriptor) {
  std::string text;
  std::array<char, 4096> part{};
  for (ssize_t got = 0; (got = ::read(descriptor, part.data(), part.size())) > 0 || (got < 0 && errno == EINTR);)
    if (got > 0) text.append(part.data(), static_cast<std::size_t>(got));
  return text;
}

int statusOf(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

HelperOutcome runHelper(const std::string& path, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), path);
  std::vector<char*> words;
  for (auto& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {-1, std::strerror(errno)};
  const posix::Descriptor reading(ends[0]);
  posix::Descriptor writing(ends[1]);
  pid_t process = -1;
  const Start start(writing.get());
  const int error = posix_spawn(&process, path.c_str(), &start.actions, &start.attributes, words.data(), environ);
  if (error != 0) return {-1, std::strerror(error)};
  writing.reset();
  auto output = readToTheEnd(reading.get());
  return {statusOf(process), std::move(output)};
}

}  // namespace platform::Linux
