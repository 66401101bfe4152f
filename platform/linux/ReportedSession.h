#pragma once
// Bundles and running applications of a run that must be able to say why it failed: what these answer goes to the report.
// Main thread.
#include <optional>

#include "platform/Bundle.h"
#include "platform/RunReport.h"
#include "platform/Workspace.h"

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

// As long as copies run, they are what the run would fail for; after a launch it has succeeded.
class ReportedWorkspace final : public platform::Workspace {
 public:
  // Both outlive the object.
  ReportedWorkspace(platform::Workspace& workspace, RunReport& report) : _workspace(workspace), _report(report) {}

  [[nodiscard]] std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

 private:
  platform::Workspace& _workspace;
  RunReport& _report;
};

}  // namespace platform::Linux
