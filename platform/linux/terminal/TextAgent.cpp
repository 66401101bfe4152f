#include "platform/linux/terminal/TextAgent.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "posix/Descriptor.h"

namespace platform::Linux {
namespace {

constexpr const char* program = "pkttyagent";
constexpr int patience = 5000;  // milliseconds until it has told the policy service of itself

// The signals that this program keeps for itself are the agent's own business, and its complaints nobody's.
class Surroundings {
 public:
  Surroundings() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ~Surroundings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
};

// Only a session can have an agent besides. Outside of one the policy service would look for that in vain, and then not at
// an agent that stands back for it.
bool isInSession() {
  char* session = nullptr;
  const bool isInOne = sd_pid_get_session(0, &session) >= 0;
  std::free(session);
  return isInOne;
}

pid_t start(int ready) {
  std::vector<std::string> words{program, "--process", std::to_string(::getpid()), "--notify-fd", std::to_string(ready)};
  if (isInSession()) words.emplace_back("--fallback");
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const Surroundings surroundings;
  pid_t agent = -1;
  const int error =
      posix_spawnp(&agent, program, &surroundings.actions, &surroundings.attributes, arguments.data(), environ);
  return error == 0 ? agent : -1;
}

}  // namespace

TextAgent::TextAgent() {
  if (::geteuid() == 0 || ::isatty(STDIN_FILENO) == 0) return;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  const posix::Descriptor reading(ends[0]);
  posix::Descriptor writing(ends[1]);
  ::fcntl(writing.get(), F_SETFD, 0);  // the agent closes it when it is ready
  _agent = start(writing.get());
  writing.reset();
  pollfd closed{reading.get(), POLLIN, 0};
  while (_agent > 0 && ::poll(&closed, 1, patience) < 0 && errno == EINTR) continue;
}

TextAgent::~TextAgent() { stop(); }

void TextAgent::stop() {
  if (_agent <= 0) return;
  ::kill(_agent, SIGTERM);
  ::kill(_agent, SIGCONT);
  while (::waitpid(_agent, nullptr, 0) < 0 && errno == EINTR) continue;
  _agent = -1;
}

}  // namespace platform::Linux
