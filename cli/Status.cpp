#include "cli/Status.h"

#include <array>
#include <utility>

#include "foundation/plist/PropertyList.h"
#include "foundation/text/Path.h"
#include "protocol/LastRun.h"

namespace cli {
namespace {

namespace PropertyList = foundation::PropertyList;
namespace key = protocol::lastRunKey;

constexpr std::array lastRunNames{std::pair{key::mode, "mode"},
                                  std::pair{key::bundle, "bundle"},
                                  std::pair{key::oldVersion, "oldVersion"},
                                  std::pair{key::newVersion, "newVersion"},
                                  std::pair{key::status, "status"},
                                  std::pair{key::step, "step"},
                                  std::pair{key::path, "path"},
                                  std::pair{key::cause, "cause"},
                                  std::pair{key::time, "time"}};

PropertyList::Array listOf(const std::vector<std::string>& texts) { return {texts.begin(), texts.end()}; }

std::string nameOf(protocol::Policy::Unsigned rule) {
  if (rule == protocol::Policy::Unsigned::ask) return "ask";
  return rule == protocol::Policy::Unsigned::allow ? "allow" : "refuse";
}

}  // namespace

Dictionary statusOfBundle(const std::string& path, const platform::Platform& platform) {
  const auto bundle = platform.bundles.bundleWithPath(path);
  if (bundle == nullptr) return {};
  const auto identifier = bundle->bundleIdentifier().value_or("");
  Dictionary status{{"path", path}, {"identifier", identifier}, {"version", versionOf(*bundle)}};
  if (const auto name = bundle->infoString("CFBundleName")) status.insert_or_assign("name", *name);
  const auto copies = platform.workspace.runningApplications(identifier);
  status.insert_or_assign("runningCopies", static_cast<int>(copies.size()));
  return status;
}

PropertyList::Array versionsOf(const std::vector<std::string>& paths, const platform::Bundles& bundles) {
  PropertyList::Array versions;
  for (const auto& path : paths)
    if (const auto bundle = bundles.bundleWithPath(path)) versions.emplace_back(versionOf(*bundle));
  return versions;
}

Dictionary statusOfLastRun(const platform::FileManager& files) {
  const auto bytes = files.contentsAtPath(protocol::lastRunPath());
  const auto record = bytes ? PropertyList::parse(*bytes) : std::nullopt;
  const auto* values = record ? record->as<Dictionary>() : nullptr;
  Dictionary status;
  if (values == nullptr) return status;
  for (const auto& [stored, shown] : lastRunNames) {
    if (const auto value = values->find(stored); value != values->end()) status.insert_or_assign(shown, value->second);
  }
  return status;
}

Dictionary statusOfPolicy(const protocol::Policy& policy, const std::string& cause) {
  Dictionary status{{"tools", listOf(policy.tools)},
                    {"sessionTools", listOf(policy.sessionTools)},
                    {"unsigned", nameOf(policy.unsignedBundles)},
                    {"downgrades", policy.areDowngradesAllowed ? "allow" : "refuse"},
                    {"keep", static_cast<std::int64_t>(policy.keptVersions)},
                    {"maximumEntries", static_cast<std::int64_t>(policy.maximumEntries)}};
  if (!cause.empty()) status.insert_or_assign("refusedFile", cause);
  return status;
}

}  // namespace cli
