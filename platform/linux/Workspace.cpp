#include "platform/linux/Workspace.h"

#include <unistd.h>

#include <system_error>
#include <utility>

#include "platform/linux/BundleProgram.h"
#include "platform/linux/CloseWindows.h"
#include "platform/linux/Launch.h"
#include "platform/linux/PoliteQuit.h"
#include "platform/linux/ProcessFacts.h"
#include "platform/linux/RunningCopies.h"

namespace platform::Linux {

namespace {

class RunningApplication final : public platform::RunningApplication {
 public:
  RunningApplication(RunningProcess process, std::string_view bundleIdentifier, std::vector<pid_t> copies,
                     platform::SystemLog& log, BlockingCall& blockingCall, std::function<void()> willAsk)
      : _process(std::move(process)),
        _bundleIdentifier(bundleIdentifier),
        _copies(std::move(copies)),
        _log(log),
        _blockingCall(blockingCall),
        _willAsk(std::move(willAsk)) {}

  bool terminate() override {
    _willAsk();
    bool isAsked = false;
    _blockingCall.run([&] { isAsked = askToQuit(_process, _bundleIdentifier, _copies); });
    if (!isAsked) _log.log("Process " + std::to_string(_process.number) + whose() + " could not be asked to quit");
    return isAsked;
  }

 private:
  // The person at the screen can do nothing about another user's copy, and has to hear whose it is.
  [[nodiscard]] std::string whose() const {
    const auto owner = ownerOf(_process.number);
    return !owner || *owner == ::getuid() ? ""
                                          : ", which belongs to the user with the number " + std::to_string(*owner) + ",";
  }

  const RunningProcess _process;
  const std::string _bundleIdentifier;
  const std::vector<pid_t> _copies;
  platform::SystemLog& _log;
  BlockingCall& _blockingCall;
  const std::function<void()> _willAsk;
};

}  // namespace

std::vector<std::shared_ptr<platform::RunningApplication>> Workspace::runningApplications(
    std::string_view bundleIdentifier) const {
  std::vector<RunningProcess> processes;
  std::vector<pid_t> numbers;
  _blockingCall.run([&] {
    processes = copiesOf({std::string(bundleIdentifier), _installedBundle}, _bundles);
    for (const auto& process : processes) numbers.push_back(process.number);
    if (_hasAsked) keepInFront(numbers);
  });
  if (_hasAsked && onWait) onWait(numbers);
  const auto willAsk = [this] {
    _hasAsked = true;
    if (onAsk) onAsk();
  };
  std::vector<std::shared_ptr<platform::RunningApplication>> applications;
  for (auto& process : processes)
    applications.push_back(
        std::make_shared<RunningApplication>(std::move(process), bundleIdentifier, numbers, _log, _blockingCall, willAsk));
  return applications;
}

bool Workspace::launchApplication(const std::string& path, std::uint32_t /*options*/,
                                  const LaunchConfiguration* configuration) {
  const auto bundle = _bundles.bundleWithPath(path);
  const auto executable = bundle ? mainExecutableOf(*bundle) : std::nullopt;
  if (!executable) {
    _log.log(path + " was not launched: no program in it that can be executed");
    return false;
  }
  int status = 0;
  const std::vector<std::string> arguments =
      configuration != nullptr ? configuration->arguments : std::vector<std::string>();
  _blockingCall.run([&] { status = launch(*executable, arguments, bundle->bundleIdentifier().value_or("")); });
  if (status != 0) _log.log(path + " was not launched: " + std::generic_category().message(status));
  return status == 0;
}

}  // namespace platform::Linux
