#pragma once
// Running applications, and starting one.
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/Bundle.h"
#include "platform/SystemLog.h"
#include "platform/Workspace.h"
#include "platform/linux/BlockingCall.h"

namespace platform::Linux {

// Main thread. The constructor's arguments must outlive this object and the RunningApplications that it hands out.
class Workspace final : public platform::Workspace {
 public:
  // Called before a copy is asked to quit.
  std::function<void()> onAsk;
  // Called with the copies that still run, each time they are looked for once one of them has been asked to quit. It may be
  // asking its user, so no window of this program belongs in front of its windows from then on.
  std::function<void(const std::vector<pid_t>& copies)> onWait;

  // `installedBundle` is the path of the bundle that a run is about, when it is about one.
  Workspace(const platform::Bundles& bundles, platform::SystemLog& log, BlockingCall& blockingCall,
            std::string installedBundle = {})
      : _bundles(bundles), _log(log), _blockingCall(blockingCall), _installedBundle(std::move(installedBundle)) {}

  // See copiesOf() for what counts as a copy. The windows of a copy that was asked to quit come in front of this program's.
  [[nodiscard]] std::vector<std::shared_ptr<platform::RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;

  // Runs the bundle's "CFBundleExecutable" from Contents/Linux, else from Contents/MacOS. There is no other way to launch
  // than the default one, whatever `options` says. Why a launch failed goes to the log.
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

 private:
  const platform::Bundles& _bundles;
  platform::SystemLog& _log;
  BlockingCall& _blockingCall;
  std::string _installedBundle;
  mutable bool _hasAsked = false;
};

}  // namespace platform::Linux
