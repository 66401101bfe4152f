#pragma once
// Bundles and running applications of a run that must be able to say why it failed: what these answer goes to the report.
// Main thread.
#include <functional>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/RunReport.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "platform/linux/FileManager.h"

namespace platform::Linux {

// Hands out no bundle to a run that cannot succeed.
class CheckedBundles final : public platform::Bundles {
 public:
  // All of these outlive the object.
  CheckedBundles(const platform::Bundles& bundles, const std::optional<Failure>& refusal, RunReport& report)
      : _bundles(bundles), _refusal(refusal), _report(report) {}

  [[nodiscard]] const platform::Bundle& mainBundle() const override { return _bundles.mainBundle(); }
  [[nodiscard]] std::shared_ptr<const platform::Bundle> bundleWithPath(std::string_view path) const override;

 private:
  const platform::Bundles& _bundles;
  const std::optional<Failure>& _refusal;
  RunReport& _report;
};

// The bundle that a run is to put in its place, as it was before the run changed anything.
struct NewBundle {
  std::string place;      // where the run is to leave it
  std::string installed;  // where the tool puts it first, under the installed bundle's name
  std::optional<std::string> identifier;
  std::optional<std::string> version;
};
// Nothing when the launch arguments name none.
std::optional<NewBundle> newBundle(const platform::UserDefaults& arguments, const platform::Bundles& bundles);

// An item that took the new bundle's place during the job does not count: as long as the new bundle has the installed one's
// name, moving it is then refused by the tool, which names the item in its way.
class CheckedFiles final : public FileManager {
 public:
  // `expected` outlives the object.
  explicit CheckedFiles(const std::optional<NewBundle>& expected) : _expected(expected) {}
  [[nodiscard]] bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr) const override;

 private:
  const std::optional<NewBundle>& _expected;
};

// As long as copies run, they are what the run would fail for; after a launch it has succeeded. Launches the new bundle
// only, and nothing else that is found in its place.
class ReportedWorkspace final : public platform::Workspace {
 public:
  // Called before a launch: the program that is started may want to know how the run has gone.
  std::function<void()> onLaunch;

  // All of these outlive the object.
  ReportedWorkspace(platform::Workspace& workspace, const platform::Bundles& bundles,
                    const std::optional<NewBundle>& expected, RunReport& report)
      : _workspace(workspace), _bundles(bundles), _expected(expected), _report(report) {}

  [[nodiscard]] std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

 private:
  [[nodiscard]] std::string objectionTo(const std::string& path) const;

  platform::Workspace& _workspace;
  const platform::Bundles& _bundles;
  const std::optional<NewBundle>& _expected;
  RunReport& _report;
};

}  // namespace platform::Linux
