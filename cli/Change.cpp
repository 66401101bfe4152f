#include "cli/Change.h"

#include "app/Branding.h"
#include "foundation/text/Harmless.h"
#include "foundation/text/Path.h"
#include "protocol/LaunchArguments.h"

namespace cli {
namespace {

namespace Path = foundation::Path;

constexpr const char* applicationFolder = "/Applications";

// Keys of the facts.
constexpr const char* actionKey = "action";
constexpr const char* bundleKey = "bundle";
constexpr const char* oldVersionKey = "oldVersion";
constexpr const char* newVersionKey = "newVersion";

std::string text(const Dictionary& facts, const char* key) {
  const auto place = facts.find(key);
  const auto* value = place == facts.end() ? nullptr : place->second.as<std::string>();
  return value == nullptr ? "" : foundation::harmless(*value);
}

// " 2.0", or nothing when the version is not known.
std::string version(const Dictionary& facts, const char* key, const std::string& before) {
  const auto known = text(facts, key);
  return known.empty() ? "" : before + known;
}

void noteVersion(Dictionary& facts, const char* key, const platform::Bundles& bundles, const std::string& path) {
  const auto bundle = path.empty() ? nullptr : bundles.bundleWithPath(path);
  if (bundle == nullptr) return;
  if (auto known = versionOf(*bundle); !known.empty()) facts.insert_or_assign(key, std::move(known));
}

std::string argument(const char* name) { return std::string("-") + name; }

}  // namespace

Change changeOf(const Arguments& arguments) {
  if (arguments.command == Command::remove || arguments.command == Command::rollback)
    return {arguments.command, "", arguments.bundle};
  const std::string name = Path::lastComponent(arguments.bundle);
  const std::string folder = arguments.place.empty() ? applicationFolder : arguments.place;
  const bool isWhole = arguments.command == Command::update && !arguments.place.empty();
  return {arguments.command, arguments.bundle, isWhole ? arguments.place : Path::appending(folder, name)};
}

std::string chosenBundle(const std::vector<std::string>& kept, const std::optional<std::string>& version,
                         const platform::Bundles& bundles) {
  for (const auto& path : kept) {
    const auto bundle = bundles.bundleWithPath(path);
    if (bundle != nullptr && (!version || versionOf(*bundle) == *version)) return path;
  }
  return {};
}

std::vector<std::string> launchArguments(const Change& change) {
  std::vector<std::string> words{argument(protocol::trashPathArgument), change.installed};
  if (!change.source.empty()) {
    words.push_back(argument(protocol::sourcePathArgument));
    words.push_back(change.source);
  }
  if (change.command == Command::update) {
    words.push_back(argument(protocol::isUpdateArgument));
    words.emplace_back("YES");
  }
  return words;
}

std::string applicationOf(const Change& change) { return change.source.empty() ? change.installed : change.source; }

std::optional<platform::Failure> objectionTo(const Change& change, const platform::Platform& platform) {
  using platform::Ending;
  constexpr const char* step = "check the paths";
  // The installer's delegate would find it too, but only when somebody has been asked for the rights.
  if (platform::Failure failure; !brandingOf(platform, failure)) return failure;
  const bool isInstalled = platform.fileManager.fileExistsAtPath(change.installed);
  if (change.command == Command::install && isInstalled)
    return platform::Failure{Ending::failed, step, change.installed, "something is installed there: use \"kelto update\""};
  if (change.command == Command::install) return std::nullopt;
  if (!isInstalled)
    return platform::Failure{Ending::failed, step, change.installed,
                             change.command == Command::update ? "nothing is installed there: use \"kelto install\""
                                                               : "nothing is installed there"};
  if (change.command == Command::rollback && change.source.empty())
    return platform::Failure{Ending::failed, step, change.installed, "no such version of it is kept"};
  const auto before = platform.bundles.bundleWithPath(change.installed);
  const auto after = platform.bundles.bundleWithPath(applicationOf(change));
  if (before == nullptr || after == nullptr || before->bundleIdentifier() == after->bundleIdentifier()) return std::nullopt;
  return platform::Failure{Ending::failed, step, change.installed,
                           before->bundleIdentifier().value_or("no application") + " is installed there, and not " +
                               after->bundleIdentifier().value_or("an application")};
}

Dictionary factsOf(const Change& change, const platform::Bundles& bundles) {
  const auto folder = Path::deletingLastComponent(change.installed);
  Dictionary facts{{actionKey, nameOf(change.command)},
                   {bundleKey, Path::appending(folder, Path::lastComponent(applicationOf(change)))}};
  noteVersion(facts, oldVersionKey, bundles, change.installed);
  noteVersion(facts, newVersionKey, bundles, change.source);
  return facts;
}

void addEnding(Dictionary& facts, const platform::RunReport& report) {
  facts.insert_or_assign("status", static_cast<int>(report.ending()));
  if (!report.failure()) return;
  facts.insert_or_assign("step", report.failure()->step);
  if (!report.failure()->path.empty()) facts.insert_or_assign("path", report.failure()->path);
  facts.insert_or_assign("cause", report.failure()->cause);
}

std::string questionAbout(const Dictionary& facts) {
  const auto bundle = text(facts, bundleKey);
  if (text(facts, actionKey) == nameOf(Command::install))
    return "Install " + bundle + version(facts, newVersionKey, ", version ") + "?";
  if (text(facts, actionKey) == nameOf(Command::remove))
    return "Move " + bundle + version(facts, oldVersionKey, ", version ") + ", to the Trash?";
  if (text(facts, actionKey) == nameOf(Command::rollback))
    return "Return " + bundle + version(facts, oldVersionKey, " from ") + version(facts, newVersionKey, " to ") + "?";
  return "Update " + bundle + version(facts, oldVersionKey, " from ") + version(facts, newVersionKey, " to ") + "?";
}

std::string reportOf(const Dictionary& facts) {
  const auto bundle = text(facts, bundleKey);
  if (text(facts, actionKey) == nameOf(Command::install))
    return "Installed " + bundle + version(facts, newVersionKey, ", version ") + ".";
  if (text(facts, actionKey) == nameOf(Command::remove)) return "Moved " + bundle + " to the Trash.";
  if (text(facts, actionKey) == nameOf(Command::rollback))
    return "Returned " + bundle + version(facts, oldVersionKey, " from ") + version(facts, newVersionKey, " to ") + ".";
  return "Updated " + bundle + version(facts, oldVersionKey, " from ") + version(facts, newVersionKey, " to ") + ".";
}

}  // namespace cli
