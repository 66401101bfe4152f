#pragma once
// The distribution's program that asks for an administrator's password on the terminal.
#include <sys/types.h>

namespace platform::Linux {

// Runs for as long as this object lives, for this process, and only when there is a terminal to ask on and somebody else
// than root to ask for. Where the session has an agent of its own, that one asks.
class TextAgent {
 public:
  // Returns when the agent is ready, or when there is none.
  TextAgent();
  ~TextAgent();
  TextAgent(const TextAgent&) = delete;
  TextAgent& operator=(const TextAgent&) = delete;

  // Ends it. Safe to call again.
  void stop();

 private:
  pid_t _agent = -1;
};

}  // namespace platform::Linux
