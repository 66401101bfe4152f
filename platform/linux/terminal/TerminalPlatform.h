#pragma once
// The platform of the command line: everything that a run of the installer needs, but for a window.
//
// Make one at the start of main, before other threads start, and keep it until the end. Main thread only.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Platform.h"

namespace platform::Linux {

class TerminalPlatform {
 public:
  struct Hooks {
    std::function<void()> onLogLine = [] {};                  // before a line is written to standard error
    std::function<void(std::size_t)> onCopies = [](auto) {};  // this many copies run, which are asked to quit
    std::function<void(bool)> onToolRuns = [](bool) {};       // a tool has been started, or has ended
    std::function<void()> onLaunch = [] {};                   // the new version is about to be started
  };

  // `arguments` are those that an installer with a window would be started with. Without any, nothing is to be changed, and
  // the record of the last run stays.
  TerminalPlatform(const std::vector<std::string>& arguments, Hooks hooks);
  // Writes the record of the run.
  ~TerminalPlatform();
  TerminalPlatform(const TerminalPlatform&) = delete;
  TerminalPlatform& operator=(const TerminalPlatform&) = delete;

  [[nodiscard]] Platform& platform() const;
  // Why the run that the arguments describe cannot succeed; nullopt if nothing speaks against it.
  [[nodiscard]] const std::optional<Failure>& refusal() const;

  // Whether copies of the application run that this user has started.
  [[nodiscard]] bool runsForThisUser(std::string_view bundleIdentifier) const;
  // Waits for the end of a process; false when the run has been cancelled meanwhile. A process that is not there has ended.
  bool waitForEndOf(int process);
  // Whether the run ends with the start of the new version.
  void setRelaunches(bool relaunches);

  // From now on the policy service can ask for a password on the terminal.
  void prepareToAsk();
  // Runs the main run loop until Application::terminate.
  void run();

 private:
  struct Parts;
  std::unique_ptr<Parts> _parts;
};

}  // namespace platform::Linux
