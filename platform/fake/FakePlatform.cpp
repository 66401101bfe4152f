#include "platform/fake/FakePlatform.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace platform::fake {

std::optional<foundation::PropertyList::Value> FakeUserDefaults::objectForKey(std::string_view key) const {
  const auto place = values.find(key);
  return place == values.end() ? std::nullopt : std::optional(place->second);
}

bool FakeUserDefaults::setObject(std::string_view key, const foundation::PropertyList::Value& value) {
  values.insert_or_assign(std::string(key), value);
  ++_generation;
  return true;
}

bool FakeUserDefaults::removeObject(std::string_view key) {
  const auto place = values.find(key);
  if (place != values.end()) values.erase(place);
  ++_generation;
  return true;
}

void FakeDistributedNotificationCenter::addObserver(std::string_view name, foundation::NotificationHandler handler) {
  observed.emplace_back(name);
  _center.addObserver(name, std::move(handler));
}

bool FakeDistributedNotificationCenter::post(const foundation::Notification& notification) {
  posted.push_back(notification);
  _center.post(notification);
  return true;
}

std::optional<std::string> FakeBundle::pathForResource(std::string_view name, std::string_view type) const {
  const auto place = resources.find(type.empty() ? std::string(name) : std::string(name) + "." + std::string(type));
  return place == resources.end() ? std::nullopt : std::optional(place->second);
}

std::string FakeBundle::localizedStringForKey(std::string_view key, std::string_view value,
                                              std::string_view /*table*/) const {
  const auto place = strings.find(key);
  if (place != strings.end()) return place->second;
  return std::string(value.empty() ? key : value);
}

std::shared_ptr<const Bundle> FakeBundles::bundleWithPath(std::string_view path) const {
  const auto place = others.find(path);
  return place == others.end() ? nullptr : place->second;
}

void FakeWindow::setFrame(const foundation::Rect& frame, bool display) {
  currentFrame = frame;
  displays.push_back(display);
}

void FakeWindow::setFrameOrigin(foundation::Point origin) { currentFrame.origin = origin; }

void FakeWindow::center() { isCentered = true; }

void FakeApplication::runModal(const Alert& alert) {
  alerts.push_back(alert);
  if (whileAlertIsUp) whileAlertIsUp(alert);
}

void FakeApplication::terminate(const void* sender) {
  terminateSenders.push_back(sender);
  if (isTerminated) return;
  isTerminated = true;
  const foundation::Notification notification{std::string(foundation::applicationWillTerminateNotification), {}, {}};
  if (delegate != nullptr) delegate->applicationWillTerminate(notification);
  _center.post(notification);
}

FakeByteStream::~FakeByteStream() { record->isClosed = true; }

std::size_t FakeByteStream::write(const void* bytes, std::size_t length) {
  const std::size_t taken = std::min(length, writeLimit - std::min(writeLimit, record->written.size()));
  record->written.append(static_cast<const char*>(bytes), taken);
  return taken;
}

std::size_t FakeByteStream::read(void* buffer, std::size_t capacity) {
  if (beforeRead) std::exchange(beforeRead, nullptr)();
  std::size_t given = 0;
  if (!chunks.empty()) {
    std::string& chunk = chunks.front();
    given = std::min(capacity, chunk.size());
    std::memcpy(buffer, chunk.data(), given);
    chunk.erase(0, given);
    if (chunk.empty()) chunks.pop_front();
  }
  record->reads.push_back(given);
  return given;
}

AuthorizationStatus FakeAuthorizationServices::create(AuthorizationFlags flags, AuthorizationRef& authorization) {
  calls.push_back("create " + std::to_string(flags));
  if (createStatus == errAuthorizationSuccess) authorization = _next++;
  return createStatus;
}

AuthorizationStatus FakeAuthorizationServices::makeExternalForm(AuthorizationRef authorization,
                                                                AuthorizationExternalForm& form) {
  calls.push_back("makeExternalForm " + std::to_string(authorization));
  if (authorization == 0) return errAuthorizationInvalidRef;
  if (makeExternalFormStatus == errAuthorizationSuccess) form = externalForm;
  return makeExternalFormStatus;
}

AuthorizationStatus FakeAuthorizationServices::createFromExternalForm(const AuthorizationExternalForm& form,
                                                                      AuthorizationRef& authorization) {
  calls.emplace_back("createFromExternalForm");
  adoptedForm = form;
  if (createFromExternalFormStatus == errAuthorizationSuccess) authorization = _next++;
  return createFromExternalFormStatus;
}

AuthorizationStatus FakeAuthorizationServices::copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                                          AuthorizationFlags flags) {
  const AuthorizationItem& item = rights.items[0];
  calls.push_back("copyRights " + std::to_string(authorization) + " " + item.name + " " + std::to_string(flags));
  rightValue.assign(item.value == nullptr ? "" : static_cast<const char*>(item.value), item.valueLength);
  return authorization == 0 ? errAuthorizationInvalidRef : copyRightsStatus;
}

AuthorizationStatus FakeAuthorizationServices::free(AuthorizationRef authorization, AuthorizationFlags flags) {
  calls.push_back("free " + std::to_string(authorization) + " " + std::to_string(flags));
  return freeStatus;
}

AuthorizationStatus FakeAuthorizationServices::executeWithPrivileges(AuthorizationRef authorization,
                                                                     const std::string& path, AuthorizationFlags options,
                                                                     std::unique_ptr<ByteStream>& stream) {
  calls.push_back("execute " + std::to_string(authorization) + " " + path + " " + std::to_string(options));
  if (executeStatus == errAuthorizationSuccess) stream = tool();
  return executeStatus;
}

std::vector<std::shared_ptr<RunningApplication>> FakeWorkspace::runningApplications(
    std::string_view bundleIdentifier) const {
  const auto place = running.find(bundleIdentifier);
  if (place == running.end()) return {};
  return {place->second.begin(), place->second.end()};
}

bool FakeWorkspace::launchApplication(const std::string& path, std::uint32_t options,
                                      const LaunchConfiguration* configuration) {
  launches.push_back({path, options, configuration ? std::optional(configuration->arguments) : std::nullopt});
  if (onLaunch) onLaunch();
  return true;
}

std::optional<foundation::PropertyList::Dictionary> FakeServiceManagement::copyJobDictionary(
    const std::string& label) const {
  asked.push_back(label);
  const auto place = jobs.find(label);
  return place == jobs.end() ? std::nullopt : std::optional(place->second);
}

int FakeShell::system(const std::string& commandLine) {
  commandLines.push_back(commandLine);
  return status;
}

void FakePlatform::enableDebugLogging() {
  bundles.main.info.insert_or_assign("KTBuildType", "development");
  defaults.setObject("KTDebugEnabled", true);
  defaults.setObject("KTLoggingLevel", 7);
}

}  // namespace platform::fake
