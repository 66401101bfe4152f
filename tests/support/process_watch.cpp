// Runs a test, and fails when the test leaves a process behind: process_watch PROGRAM ARGUMENT...
//
// A process whose parent has ended becomes a child of this program, however it has detached itself, and not of the system's
// first process. So this program finds those that are left, names them and kills them; and ctest finds them below it when a
// test takes too long. PROCESS_WATCH_PATIENCE is how many milliseconds those may take that are ending, 5000 unless set.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

namespace {

constexpr int longestKill = 5000;  // milliseconds
constexpr int pause = 5;

int patience() {
  const char* given = std::getenv("PROCESS_WATCH_PATIENCE");
  return given != nullptr ? std::atoi(given) : 5000;
}

pid_t start(char** words) {
  const pid_t watch = ::getpid();
  const pid_t test = ::fork();
  if (test != 0) return test;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() == watch) ::execvp(words[0], words);
  std::perror(words[0]);
  ::_exit(127);
}

// The wait status of the test. The others that end meanwhile are nobody's any more.
int statusOf(pid_t test) {
  int status = 0;
  for (;;) {
    const pid_t ended = ::waitpid(-1, &status, 0);
    if (ended == test) return status;
    if (ended < 0 && errno != EINTR) return 127 << 8;
  }
}

// Whether this program has no child any more, after so many milliseconds at most.
bool allEnd(int milliseconds) {
  for (;; milliseconds -= pause) {
    pid_t ended = 0;
    while ((ended = ::waitpid(-1, nullptr, WNOHANG)) > 0) continue;
    if (ended < 0) return true;
    if (milliseconds <= 0) return false;
    ::poll(nullptr, 0, pause);
  }
}

// Without a stream, which throws when the process ends meanwhile.
std::string contentsOf(const std::string& process, const char* name) {
  const int file = ::open(("/proc/" + process + "/" + name).c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 4096> contents{};
  const ssize_t length = file < 0 ? 0 : ::read(file, contents.data(), contents.size());
  ::close(file);
  return {contents.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
}

// The parent's number is the second word behind the program's name, which may hold anything.
bool isChild(const std::string& process) {
  const std::string facts = contentsOf(process, "stat");
  const auto name = facts.rfind(')');
  return name != std::string::npos && facts.size() > name + 4 && std::atoi(facts.c_str() + name + 4) == ::getpid();
}

std::set<std::string> children() {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc"))
    if (const std::string name = entry.path().filename(); isChild(name)) found.insert(name);
  return found;
}

// The children of those that are killed become children of this program, and their turn comes next.
void killAll() {
  std::set<std::string> named;
  for (int left = longestKill; left > 0 && !allEnd(0); left -= pause) {
    for (const auto& process : children()) {
      std::string words = contentsOf(process, "cmdline");
      std::replace(words.begin(), words.end(), '\0', ' ');
      if (named.insert(process).second) std::printf("The test has left process %s: %s\n", process.c_str(), words.c_str());
      ::kill(std::atoi(process.c_str()), SIGKILL);
    }
    ::poll(nullptr, 0, pause);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2 || ::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) return 127;
  const int status = statusOf(start(arguments + 1));
  if (!allEnd(patience())) {
    killAll();
    return 1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  ::signal(WTERMSIG(status), SIG_DFL);
  ::raise(WTERMSIG(status));
  return 128 + WTERMSIG(status);
}
