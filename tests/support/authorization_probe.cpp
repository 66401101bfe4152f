// A tool for the broker's tests: tells what it was given, and talks over its stream as it is told to.
//
// The first line of its input says what to do:
//   report      prints facts about this process, one a line
//   print N     prints N bytes in one go and ends
//   two N M     prints N bytes, waits for another line, prints M bytes and ends
//   wait        ends with its input
//   deaf        stays without reading or writing
//   flood       writes for ever (a minute)
//   fork        leaves a child behind that holds the stream and stays, prints a line and ends
//
// Processes that stay end when the test removes this program, or after a minute.
#include <dirent.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

void printBytes(std::size_t count) {
  const std::string bytes(count, 'x');
  if (::write(STDOUT_FILENO, bytes.data(), bytes.size()) < 0) ::_exit(1);
}

void reportDescriptors(std::ostream& out) {
  DIR* folder = ::opendir("/proc/self/fd");
  std::vector<int> open;
  while (const dirent* entry = ::readdir(folder)) {
    const int descriptor = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && descriptor != ::dirfd(folder)) open.push_back(descriptor);
  }
  ::closedir(folder);
  std::sort(open.begin(), open.end());
  for (const int descriptor : open) {
    char target[256] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (::readlink(link.c_str(), target, sizeof target - 1) < 0) std::strcpy(target, "?");
    if (std::strncmp(target, "socket:", 7) == 0) target[6] = '\0';
    out << "descriptor " << descriptor << " " << target << "\n";
  }
}

void reportSignals(std::ostream& out) {
  sigset_t blocked;
  ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigismember(&blocked, number) == 1) out << "blocked " << number << "\n";
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) out << "ignored " << number << "\n";
  }
}

// No tool of a test lives longer.
constexpr unsigned longestLife = 60;

void flood() {
  const std::string bytes(65536, 'x');
  while (::write(STDOUT_FILENO, bytes.data(), bytes.size()) > 0) continue;
}

// Not tied to its stream or its parent: nothing that the broker does may depend on that.
void stay() {
  constexpr const char* program = "/proc/self/exe";
  const int watch = ::inotify_init();
  ::inotify_add_watch(watch, program, IN_ATTRIB);
  struct stat file {};
  for (inotify_event event{}; ::stat(program, &file) == 0 && file.st_nlink > 0;)
    if (::read(watch, &event, sizeof event) < 0) ::pause();
}

void leaveChild() {
  if (::fork() == 0) {
    ::alarm(longestLife);
    stay();
    ::_exit(0);
  }
  printBytes(1);
}

std::string report(int count) {
  std::ostringstream out;
  for (char** variable = environ; *variable != nullptr; ++variable) out << "environment " << *variable << "\n";
  reportDescriptors(out);
  reportSignals(out);
  const mode_t mask = ::umask(0);
  char folder[4096] = {};
  out << "umask " << std::oct << mask << std::dec << "\n";
  out << "folder " << (::getcwd(folder, sizeof folder) != nullptr ? folder : "?") << "\n";
  out << "new privileges " << (::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ? "none" : "possible") << "\n";
  out << "session " << (::getsid(0) == ::getpid() ? "own" : "inherited") << "\n";
  out << "user " << ::getuid() << " " << ::geteuid() << "\n";
  out << "arguments " << count - 1 << "\n";
  return out.str();
}

}  // namespace

int main(int count, char** /*arguments*/) {
  ::alarm(longestLife);
  std::string line;
  std::getline(std::cin, line);
  std::istringstream words(line);
  std::string command;
  std::size_t first = 0;
  std::size_t second = 0;
  words >> command >> first >> second;
  if (command == "report") {
    std::cout << report(count) << std::flush;
  } else if (command == "print") {
    printBytes(first);
  } else if (command == "two") {
    printBytes(first);
    std::getline(std::cin, line);
    printBytes(second);
  } else if (command == "deaf") {
    stay();
  } else if (command == "flood") {
    flood();
  } else if (command == "fork") {
    leaveChild();
  } else {
    while (std::getline(std::cin, line)) continue;
  }
  return 0;
}
