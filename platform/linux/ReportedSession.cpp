#include "platform/linux/ReportedSession.h"

#include <sys/stat.h>

#include <string>

#include "foundation/text/Path.h"
#include "protocol/LaunchArguments.h"

namespace platform::Linux {
namespace {

constexpr const char* versionKey = "CFBundleVersion";

bool areDifferentItems(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  if (::lstat(one.c_str(), &first) != 0 || ::lstat(other.c_str(), &second) != 0) return false;
  return first.st_dev != second.st_dev || first.st_ino != second.st_ino;
}

std::string nameWithVersion(const std::optional<std::string>& identifier, const std::optional<std::string>& version) {
  return identifier.value_or("no identifier") + " " + version.value_or("without a version");
}

}  // namespace

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

std::optional<NewBundle> newBundle(const platform::UserDefaults& arguments, const platform::Bundles& bundles) {
  using namespace foundation::Path;
  const auto source = arguments.stringForKey(protocol::sourcePathArgument);
  const auto installed = arguments.stringForKey(protocol::trashPathArgument);
  const auto bundle = source && installed ? bundles.bundleWithPath(*source) : nullptr;
  if (bundle == nullptr) return std::nullopt;
  return NewBundle{appending(deletingLastComponent(*installed), lastComponent(*source)), *installed,
                   bundle->bundleIdentifier(), bundle->infoString(versionKey)};
}

bool CheckedFiles::fileExistsAtPath(const std::string& path, bool* isDirectory) const {
  if (!FileManager::fileExistsAtPath(path, isDirectory)) return false;
  return !_expected || path != _expected->place || !areDifferentItems(path, _expected->installed);
}

// Empty if there is none.
std::string ReportedWorkspace::objectionTo(const std::string& path) const {
  if (!_expected) return {};
  const auto found = _bundles.bundleWithPath(path);
  if (found == nullptr) return "the new bundle is not there";
  const auto identifier = found->bundleIdentifier();
  const auto version = found->infoString(versionKey);
  if (identifier == _expected->identifier && version == _expected->version) return {};
  return nameWithVersion(identifier, version) + " is there, and not the new bundle, " +
         nameWithVersion(_expected->identifier, _expected->version);
}

bool ReportedWorkspace::launchApplication(const std::string& path, std::uint32_t options,
                                          const LaunchConfiguration* configuration) {
  std::string cause = objectionTo(path);
  if (cause.empty() && onLaunch) onLaunch();
  const bool isLaunched = cause.empty() && _workspace.launchApplication(path, options, configuration);
  if (cause.empty()) cause = "it could not be started";
  if (!isLaunched) _report.fail({Ending::failed, "start the application", path, cause});
  _report.succeed();
  return isLaunched;
}

}  // namespace platform::Linux
