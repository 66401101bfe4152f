#pragma once
// The other applications of the user's session: lists, quits and starts them. Main thread.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// One running copy of an application. Never comes to stand for another process, even if the process number is reused.
class RunningApplication {
 public:
  virtual ~RunningApplication() = default;
  // Asks it to quit in the ordinary way, never by force: it may ask the user about unsaved work, or refuse. False if the
  // request could not be sent or the copy has already ended.
  virtual bool terminate() = 0;
};

// Launch without waiting until the application is up.
inline constexpr std::uint32_t NSWorkspaceLaunchDefault = 0x10000;

struct LaunchConfiguration {
  std::vector<std::string> arguments;
};

class Workspace {
 public:
  virtual ~Workspace() = default;
  // The running copies of applications with this bundle identifier, except this process.
  [[nodiscard]] virtual std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const = 0;
  // Starts the application bundle at `path` as this user. `configuration` may be nullptr. False on failure.
  virtual bool launchApplication(const std::string& path, std::uint32_t options,
                                 const LaunchConfiguration* configuration) = 0;
};

}  // namespace platform
