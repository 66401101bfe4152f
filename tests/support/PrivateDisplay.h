#pragma once
// A display of the test's own: Xvfb and a window manager, gone with this object or with the process, however it ends.
//
// Needs Xvfb, openbox and xprop. Children follow the thread that made them, so make it on the main thread.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tests {

// A program that dies with its parent.
class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& arguments) : _pid(start(arguments)) {}
  ChildProcess(ChildProcess&& other) noexcept : _pid(std::exchange(other._pid, -1)) {}
  ChildProcess& operator=(ChildProcess&& other) noexcept {
    std::swap(_pid, other._pid);
    return *this;
  }
  ~ChildProcess() {
    if (_pid <= 0) return;
    send(SIGTERM);
    wait();
  }

  [[nodiscard]] pid_t pid() const { return _pid; }

  // Does nothing once it was waited for.
  void send(int signal) const {
    if (_pid > 0) kill(_pid, signal);
  }

  // Waits for the end; the exit status, or 128 and the signal.
  int wait() {
    if (_pid <= 0) return 127;
    int status = 0;
    waitpid(std::exchange(_pid, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  static pid_t start(const std::vector<std::string>& arguments) {
    std::vector<char*> words;
    for (const auto& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(127);
    execvp(words[0], words.data());
    _exit(127);
  }

  pid_t _pid;
};

// The standard output of a shell line.
inline std::string outputOf(const std::string& line) {
  std::string output;
  FILE* pipe = popen(line.c_str(), "r");
  if (pipe == nullptr) return output;
  char buffer[4096];
  for (std::size_t length = 0; (length = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, length);
  pclose(pipe);
  return output;
}

class PrivateDisplay {
 public:
  // Sets DISPLAY for this process. Throws std::runtime_error when the display or its window manager does not come up.
  explicit PrivateDisplay(const std::string& screen = "1280x1024x24") : _server(startServer(screen)) {
    setenv("DISPLAY", _name.c_str(), 1);
    unsetenv("WAYLAND_DISPLAY");
    // The window manager announces itself before it takes care of windows, so it says itself when it has started.
    _windowManager = ChildProcess({"openbox", "--sm-disable", "--startup",
                                   "xprop -root -f KELTO_WINDOW_MANAGER_IS_UP 8s -set KELTO_WINDOW_MANAGER_IS_UP yes"});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (outputOf("xprop -root KELTO_WINDOW_MANAGER_IS_UP 2>&1").find("yes") == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("the window manager did not start");
      poll(nullptr, 0, 10);
    }
  }

  [[nodiscard]] const std::string& name() const { return _name; }

 private:
  ChildProcess startServer(const std::string& screen) {
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) throw std::runtime_error("no pipe for the display's number");
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    ChildProcess server(
        {"Xvfb", "-displayfd", std::to_string(ends[1]), "-screen", "0", screen, "-nolisten", "tcp", "-noreset", "-ac"});
    close(ends[1]);
    std::string number;
    pollfd readable{ends[0], POLLIN, 0};
    char digit = 0;
    while (poll(&readable, 1, 20000) > 0 && read(ends[0], &digit, 1) == 1 && digit != '\n') number += digit;
    close(ends[0]);
    if (number.empty()) throw std::runtime_error("Xvfb did not start");
    _name = ":" + number;
    return server;
  }

  std::string _name;
  ChildProcess _server;
  ChildProcess _windowManager{std::vector<std::string>{"true"}};
};

}  // namespace tests
