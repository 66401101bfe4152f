#pragma once
// Runs programs with the broker's own rights, each from an open descriptor, and reaps them.
//
// A program gets a stream as standard input and output, an environment of PATH, LANG and KELTO_INVOKING_UID (and
// XDG_DATA_HOME of the broker, when it runs for its own user), a session of its own, "/" as working folder and nothing else
// that is open. One thread: that of the event loop, in which SIGCHLD must
// be blocked.
#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <string>

#include "platform/linux/Descriptor.h"
#include "platform/linux/authorizationd/Sessions.h"

namespace platform::Linux::authorizationd {

class ToolRunner {
 public:
  static constexpr std::size_t MaximumToolsOfUser = 8;

  // `ended` is called after each program that ended; `loop` outlives this object.
  ToolRunner(sd_event* loop, std::function<void()> ended);
  ~ToolRunner();
  ToolRunner(const ToolRunner&) = delete;
  ToolRunner& operator=(const ToolRunner&) = delete;

  // Starts the program that `tool` is open on; the descriptor stays the caller's. The program must be a regular file,
  // executable, without set-user-id or set-group-id, owned by root or the caller and writable by nobody else. On success
  // `stream` is the other end of its input and output, on failure `reason` says why.
  AuthorizationStatus run(const Caller& caller, int tool, Descriptor& stream, std::string& reason);

  [[nodiscard]] bool empty() const { return _children.empty(); }

 private:
  struct Child {
    uid_t uid;
    sd_event_source* source;
  };

  bool watch(pid_t process, uid_t uid);
  static int childEnded(sd_event_source* source, const siginfo_t* info, void* self);

  sd_event* _loop;
  std::function<void()> _ended;
  std::map<pid_t, Child> _children;
};

}  // namespace platform::Linux::authorizationd
