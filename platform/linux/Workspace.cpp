#include "platform/linux/Workspace.h"

#include <system_error>
#include <utility>

#include "foundation/text/Path.h"
#include "platform/linux/FileManager.h"
#include "platform/linux/Launch.h"
#include "platform/linux/PoliteQuit.h"
#include "platform/linux/RunningProcesses.h"

namespace platform::Linux {

namespace {

class RunningApplication final : public platform::RunningApplication {
 public:
  RunningApplication(RunningProcess process, std::string_view bundleIdentifier, platform::SystemLog& log,
                     BlockingCall& blockingCall)
      : _process(std::move(process)), _bundleIdentifier(bundleIdentifier), _log(log), _blockingCall(blockingCall) {}

  bool terminate() override {
    bool isAsked = false;
    _blockingCall.run([&] { isAsked = askToQuit(_process, _bundleIdentifier); });
    if (!isAsked) _log.log("Process " + std::to_string(_process.number) + " could not be asked to quit");
    return isAsked;
  }

 private:
  const RunningProcess _process;
  const std::string _bundleIdentifier;
  platform::SystemLog& _log;
  BlockingCall& _blockingCall;
};

bool isOneComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

}  // namespace

std::vector<std::shared_ptr<platform::RunningApplication>> Workspace::runningApplications(
    std::string_view bundleIdentifier) const {
  std::vector<std::shared_ptr<platform::RunningApplication>> applications;
  for (auto& process : processesOfBundles()) {
    const auto bundle = _bundles.bundleWithPath(process.bundlePath);
    if (bundle && bundle->bundleIdentifier() == bundleIdentifier)
      applications.push_back(
          std::make_shared<RunningApplication>(std::move(process), bundleIdentifier, _log, _blockingCall));
  }
  return applications;
}

std::optional<std::string> Workspace::executableOfBundle(const std::string& path) const {
  const auto bundle = _bundles.bundleWithPath(path);
  const auto name = bundle ? bundle->infoString("CFBundleExecutable") : std::nullopt;
  if (!name || !isOneComponent(*name)) return std::nullopt;
  for (const auto* folder : {"Contents/Linux", "Contents/MacOS"}) {
    auto executable = foundation::Path::appending(foundation::Path::appending(path, folder), *name);
    if (FileManager().isExecutableFileAtPath(executable)) return executable;
  }
  return std::nullopt;
}

bool Workspace::launchApplication(const std::string& path, std::uint32_t /*options*/,
                                  const LaunchConfiguration* configuration) {
  const auto executable = executableOfBundle(path);
  if (!executable) {
    _log.log(path + " was not launched: no program in it that can be executed");
    return false;
  }
  int status = 0;
  const std::vector<std::string> arguments =
      configuration != nullptr ? configuration->arguments : std::vector<std::string>();
  _blockingCall.run([&] { status = launch(*executable, arguments); });
  if (status != 0) _log.log(path + " was not launched: " + std::generic_category().message(status));
  return status == 0;
}

}  // namespace platform::Linux
