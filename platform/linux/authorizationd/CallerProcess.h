#pragma once
// The kernel's view of a process that talks to the broker: which program it runs, and whether a pidfd names it.
#include <sys/types.h>

#include <memory>
#include <string>

#include "posix/Descriptor.h"

namespace platform::Linux::authorizationd {

// The path of the program that the process runs, or "" when that is not known. `user` is the process's user: the kernel
// shows the path to that user and to a process with more capabilities than the broker has.
std::string executableOf(pid_t process, uid_t user);

// A process beyond doubt: its number can be given to another one only after it ended, and the pidfd tells that.
class NamedProcess {
 public:
  // The process that `pidfd` is open on, which stays the caller's; nullptr when it is not open on a living process.
  static std::shared_ptr<const NamedProcess> of(int pidfd);

  [[nodiscard]] pid_t number() const { return _number; }
  [[nodiscard]] bool isAlive() const;

 private:
  NamedProcess(posix::Descriptor pidfd, pid_t number) : _pidfd(std::move(pidfd)), _number(number) {}

  posix::Descriptor _pidfd;
  pid_t _number;
};

}  // namespace platform::Linux::authorizationd
