#pragma once
// A process of its own for what a test must not do to this one.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <string>

#include "foundation/dispatch/Fork.h"

namespace tests {

// The status of a child that does `work`, forked as the platform's own layer would.
inline int statusOfChild(const std::function<int()>& work) {
  foundation::Fork::prepare();
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(30);
    foundation::Fork::child();
    ::_exit(work());
  }
  foundation::Fork::parent();
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

// Whether a thread of this process waits for something.
inline bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string number;
  std::string name;
  std::string state;
  file >> number >> name >> state;
  return state == "S";
}

}  // namespace tests
