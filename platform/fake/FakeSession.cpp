#include "platform/fake/FakeSession.h"

#include "foundation/text/Format.h"

namespace platform::fake {

std::optional<foundation::PropertyList::Value> FakeUserDefaults::objectForKey(std::string_view key) const {
  const auto place = values.find(key);
  return place == values.end() ? std::nullopt : std::optional(place->second);
}

bool FakeUserDefaults::setObject(std::string_view key, const foundation::PropertyList::Value& value) {
  if (refusesToStore) return false;
  values.insert_or_assign(std::string(key), value);
  beginGeneration();
  return true;
}

bool FakeUserDefaults::removeObject(std::string_view key) {
  if (refusesToStore) return false;
  const auto place = values.find(key);
  if (place != values.end()) values.erase(place);
  beginGeneration();
  return true;
}

void FakeDistributedNotificationCenter::addObserver(std::string_view name, foundation::NotificationHandler handler) {
  note("distributedNotificationCenter.addObserver " + std::string(name));
  observed.emplace_back(name);
  _center.addObserver(name, std::move(handler));
}

bool FakeDistributedNotificationCenter::post(const foundation::Notification& notification) {
  note("distributedNotificationCenter.post " + notification.name);
  if (!isConnected) return false;
  posted.push_back(notification);
  _runLoop.performAfterDelay(foundation::Seconds(0), this, [this, notification] { _center.post(notification); });
  return true;
}

std::optional<std::string> FakeBundle::pathForResource(std::string_view name, std::string_view type) const {
  const auto place = resources.find(type.empty() ? std::string(name) : std::string(name) + "." + std::string(type));
  return place == resources.end() ? std::nullopt : std::optional(place->second);
}

std::string FakeBundle::localizedStringForKey(std::string_view key, std::string_view value, std::string_view table) const {
  const auto other = tables.find(table);
  const bool isDefault = table.empty() || table == "Localizable";
  static const Strings none;
  const Strings& texts = isDefault ? strings : other == tables.end() ? none : other->second;
  const auto place = texts.find(key);
  if (place != texts.end()) return place->second;
  return std::string(value.empty() ? key : value);
}

std::shared_ptr<const Bundle> FakeBundles::bundleWithPath(std::string_view path) const {
  const auto place = others.find(path);
  return place == others.end() ? nullptr : place->second;
}

bool FakeRunningApplication::terminate() {
  const bool isAsked = canBeAsked && isRunning;
  ++quitRequests;
  if (onQuitRequest) onQuitRequest();
  if (isAsked && quitsWhenAsked) isRunning = false;
  return isAsked;
}

std::vector<std::shared_ptr<RunningApplication>> FakeWorkspace::runningApplications(
    std::string_view bundleIdentifier) const {
  note("workspace.runningApplications " + std::string(bundleIdentifier));
  std::vector<std::shared_ptr<RunningApplication>> copies;
  const auto place = running.find(bundleIdentifier);
  if (place == running.end()) return copies;
  for (const auto& copy : place->second)
    if (copy->isRunning) copies.push_back(copy);
  return copies;
}

bool FakeWorkspace::launchApplication(const std::string& path, std::uint32_t options,
                                      const LaunchConfiguration* configuration) {
  note("workspace.launchApplication " + path);
  launches.push_back({path, options, configuration ? std::optional(configuration->arguments) : std::nullopt});
  if (onLaunch) onLaunch();
  const auto application = applications.find(path);
  if (application == applications.end()) return false;
  running[application->second].push_back(std::make_shared<FakeRunningApplication>());
  return true;
}

std::optional<foundation::PropertyList::Dictionary> FakeServiceManagement::copyJobDictionary(
    const std::string& label) const {
  note("serviceManagement.copyJobDictionary " + label);
  asked.push_back(label);
  const auto place = jobs.find(label);
  return place == jobs.end() || !isReachable ? std::nullopt : std::optional(place->second);
}

// Control characters come out as the real log writes them.
void FakeSystemLog::log(std::string_view line) {
  const std::lock_guard lock(_mutex);
  std::string text;
  for (const char byte : line) {
    const auto number = static_cast<unsigned char>(byte);
    if (number < 0x20 || number == 0x7F)
      text += foundation::formatted("\\x%02x", static_cast<unsigned>(number));
    else
      text += byte;
  }
  lines.push_back(std::move(text));
}

int FakeShell::system(const std::string& commandLine) {
  note("shell.system " + commandLine);
  commandLines.push_back(commandLine);
  if (whileRunning) whileRunning(commandLine);
  return status;
}

}  // namespace platform::fake
