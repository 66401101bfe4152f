#pragma once
// Runs programs with the broker's own rights, each from an open descriptor, and reaps them.
//
// Nothing here waits: a program whose file is slow to open (on a network, or leased by its owner) delays its own caller
// only.
//
// A program gets a stream as standard input and output, an environment of PATH, LANG, the caller's user id and what
// ToolProtocol.h names besides (and XDG_DATA_HOME of the broker, when it runs for its own user), a session of its own, "/"
// as working folder and nothing else that is open; it cannot gain rights by running other programs. One thread: that of the
// event loop, in which SIGCHLD must be blocked.
#include <systemd/sd-event.h>
#include <csignal>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/linux/authorizationd/Sessions.h"
#include "posix/Descriptor.h"

namespace platform::Linux::authorizationd {

class ToolRunner {
 public:
  struct Job {
    std::string number;
    bool hasAnyProgramRight = false;
  };
  // Called after each program that ended, with the way in which it did.
  using Ended = std::function<void(const Caller& caller, const Job& job, const siginfo_t& end)>;

  // `loop` outlives this object.
  ToolRunner(sd_event* loop, Ended ended);
  ~ToolRunner();
  ToolRunner(const ToolRunner&) = delete;
  ToolRunner& operator=(const ToolRunner&) = delete;

  // On success `stream` is the other end of the program's input and output, else `reason` says why there is none.
  using Started =
      std::function<void(AuthorizationStatus status, const posix::Descriptor& stream, const std::string& reason)>;
  // Starts the program that `tool` is open on; the descriptor stays the caller's. The program must be a regular file,
  // executable, without set-user-id or set-group-id, owned by root or the caller and writable by nobody else. `started` is
  // called once, before this returns or when the program runs or cannot be run.
  void run(const Caller& caller, const Job& job, int tool, Started started);

  [[nodiscard]] bool empty() const { return _children.empty(); }

 private:
  // A program that was forked and may not run yet.
  struct Start {
    posix::Descriptor
        failure;  // ends when the program runs; before that it brings the error number that kept it from running
    posix::Descriptor stream;
    Started started;
    sd_event_source* source = nullptr;
  };
  struct Child {
    Caller caller;
    Job job;
    sd_event_source* source;
    std::unique_ptr<Start> start;
  };

  bool watch(pid_t process, const Caller& caller, const Job& job, std::unique_ptr<Start> start);
  static int startDecided(sd_event_source* source, int descriptor, std::uint32_t events, void* self);
  static int childEnded(sd_event_source* source, const siginfo_t* info, void* self);
  void finishStart(Child& child);

  sd_event* _loop;
  Ended _ended;
  std::map<pid_t, Child> _children;
};

}  // namespace platform::Linux::authorizationd
