#pragma once
// The platform of a program without a window, for logging, the kit and everything else that needs one.
//
//   int main(int argc, char** argv) {
//     platform::Linux::ProgramPlatform platform(argc, argv);
//     KTLogger::sharedLogger()->log_level_message("main", 4, "%@ of %d", "One", 3);
//   }
//
// Make one at the start of main, before other threads start, and keep it until the end. Main thread only. An alert is
// written to the system log, since there is nobody to show it to.
#include <memory>

#include "platform/Platform.h"

namespace platform::Linux {

class ProgramPlatform {
 public:
  // The arguments are the first place where user defaults are looked for ("-Key value").
  ProgramPlatform(int argc, char** argv);
  ~ProgramPlatform();
  ProgramPlatform(const ProgramPlatform&) = delete;
  ProgramPlatform& operator=(const ProgramPlatform&) = delete;

  // Makes delayed calls, fires timers and delivers notifications until Application::terminate, or until no call or timer is
  // left: a program that only waits for notifications keeps a timer.
  void run();

 private:
  struct Parts;
  std::unique_ptr<Parts> _parts;
};

}  // namespace platform::Linux
