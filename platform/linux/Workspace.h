#pragma once
// Running applications, and starting one.
#include "platform/Bundle.h"
#include "platform/SystemLog.h"
#include "platform/Workspace.h"
#include "platform/linux/BlockingCall.h"

namespace platform::Linux {

// Main thread. The constructor's arguments must outlive this object and the RunningApplications that it hands out.
class Workspace final : public platform::Workspace {
 public:
  Workspace(const platform::Bundles& bundles, platform::SystemLog& log, BlockingCall& blockingCall)
      : _bundles(bundles), _log(log), _blockingCall(blockingCall) {}

  // Processes whose program is inside a bundle with this identifier. Those of other users are seen where this user may
  // look into them.
  [[nodiscard]] std::vector<std::shared_ptr<platform::RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;

  // Runs the bundle's "CFBundleExecutable" from Contents/Linux, else from Contents/MacOS. There is no other way to launch
  // than the default one, whatever `options` says. Why a launch failed goes to the log.
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

 private:
  [[nodiscard]] std::optional<std::string> executableOfBundle(const std::string& path) const;

  const platform::Bundles& _bundles;
  platform::SystemLog& _log;
  BlockingCall& _blockingCall;
};

}  // namespace platform::Linux
