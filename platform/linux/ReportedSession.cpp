#include "platform/linux/ReportedSession.h"

#include <string>

namespace platform::Linux {

std::shared_ptr<const platform::Bundle> CheckedBundles::bundleWithPath(std::string_view path) const {
  if (_refusal) return nullptr;
  auto bundle = _bundles.bundleWithPath(path);
  if (bundle != nullptr && bundle->bundleIdentifier()) return bundle;
  _report.expect({Ending::failed, "read the bundle", std::string(path),
                  bundle == nullptr ? "it is not a folder" : "its Info.plist names no CFBundleIdentifier"});
  return bundle;
}

std::vector<std::shared_ptr<RunningApplication>> ReportedWorkspace::runningApplications(
    std::string_view bundleIdentifier) const {
  auto copies = _workspace.runningApplications(bundleIdentifier);
  if (copies.empty())
    _report.expectNothing();
  else
    _report.expect({Ending::stillRunning, "quit " + std::string(bundleIdentifier), "",
                    std::to_string(copies.size()) + (copies.size() == 1 ? " copy still runs" : " copies still run")});
  return copies;
}

bool ReportedWorkspace::launchApplication(const std::string& path, std::uint32_t options,
                                          const LaunchConfiguration* configuration) {
  const bool isLaunched = _workspace.launchApplication(path, options, configuration);
  if (!isLaunched) _report.fail({Ending::failed, "start the application", path, "it could not be started"});
  _report.succeed();
  return isLaunched;
}

}  // namespace platform::Linux
