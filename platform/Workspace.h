#pragma once
// Other applications of the user's session: which run, asking them to quit, starting them. Main thread.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// One running copy of an application; stays the same process even when its number is used again.
class RunningApplication {
 public:
  virtual ~RunningApplication() = default;
  // Asks it to quit in the ordinary way; it may ask the user about unsaved work, or refuse. Never forces. False when the
  // request could not be sent.
  virtual bool terminate() = 0;
};

// Launches without waiting for the application to be up.
inline constexpr std::uint32_t NSWorkspaceLaunchDefault = 0x10000;

struct LaunchConfiguration {
  std::vector<std::string> arguments;
};

class Workspace {
 public:
  virtual ~Workspace() = default;
  // The running copies of applications with this bundle identifier, this process never among them.
  [[nodiscard]] virtual std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const = 0;
  // Starts the application bundle at `path` as this user. `configuration` may be nullptr. False when it could not be
  // started.
  virtual bool launchApplication(const std::string& path, std::uint32_t options,
                                 const LaunchConfiguration* configuration) = 0;
};

}  // namespace platform
