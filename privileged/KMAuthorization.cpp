#include "privileged/KMAuthorization.h"

#include <cstring>
#include <utility>

using platform::AuthorizationExternalForm;
using platform::AuthorizationFlags;
using platform::AuthorizationRef;
using platform::AuthorizationStatus;

namespace {

std::string textOf(AuthorizationStatus status) {
  switch (status) {
    case platform::errAuthorizationInvalidRef:
      return "there is no session, or it has been released";
    case platform::errAuthorizationDenied:
      return "the right is denied";
    case platform::errAuthorizationCanceled:
      return "the user cancelled";
    case platform::errAuthorizationInteractionNotAllowed:
      return "a person would have to be asked, and may not be";
    case platform::errAuthorizationToolExecuteFailure:
      return "the tool could not be started";
    default:
      return "the authorization broker failed";
  }
}

}  // namespace

std::string KMAuthorization::causeOf(const platform::Platform& platform, AuthorizationStatus status) {
  const std::string detail = platform.authorizationServices.cause();
  return textOf(status) + (detail.empty() ? " (" + std::to_string(status) + ")" : ": " + detail);
}

KMAuthorization* KMAuthorization::sharedInstance() {
  platform::Platform& installed = platform::current();
  return installed.process.once<KMAuthorization>([&] { return init(installed); });
}

std::shared_ptr<KMAuthorization> KMAuthorization::init(platform::Platform& platform) {
  AuthorizationRef authorization = 0;
  const auto status = platform.authorizationServices.create(platform::kAuthorizationFlagDefaults, authorization);
  if (status != platform::errAuthorizationSuccess) {
    platform.report.fail({platform::Ending::refused, "open a session", "", causeOf(platform, status)});
    return nullptr;
  }
  std::shared_ptr<KMAuthorization> made(new KMAuthorization(platform, authorization));
  platform.defaultNotificationCenter.addObserver(
      foundation::applicationWillTerminateNotification,
      [made](const foundation::Notification& notification) { made->releaseRights(notification); });
  return made;
}

KMAuthorization::KMAuthorization(platform::Platform& platform, AuthorizationRef authorization)
    : _platform(platform),
      _authorization(authorization),
      _item{.name = platform::kAuthorizationRightExecute},
      _rights{1, &_item} {
  setToolName("assistantTool");
}

void KMAuthorization::setToolName(const std::optional<std::string>& toolName) {
  if (toolName == _toolName) return;
  _toolName = toolName;
  const std::string path = _pathForTool().value_or("");
  _item.valueLength = path.size();
  if (path.empty()) return;
  auto& buffer = _toolPaths.emplace_back(std::make_unique<char[]>(path.size() + 1));
  std::memcpy(buffer.get(), path.c_str(), path.size() + 1);
  _item.value = buffer.get();
}

std::optional<foundation::PropertyList::Data> KMAuthorization::externalRights() const {
  AuthorizationExternalForm form;
  if (_platform.authorizationServices.makeExternalForm(_authorization, form) != platform::errAuthorizationSuccess)
    return std::nullopt;
  return foundation::PropertyList::Data(form.bytes.begin(), form.bytes.end());
}

void KMAuthorization::setExternalRights(const foundation::PropertyList::Data& data) {
  AuthorizationExternalForm form;
  const bool isWhole = data.size() >= form.bytes.size();
  if (isWhole) std::memcpy(form.bytes.data(), data.data(), form.bytes.size());
  const bool isReleased = releaseRights();
  _causeWithoutSession = !isWhole ? "the rights handed over are too short" : "";
  if (!isReleased) _causeWithoutSession = "the session held before could not be released";
  if (!isReleased || !isWhole) return;
  const auto status = _platform.authorizationServices.createFromExternalForm(form, _authorization);
  if (status != platform::errAuthorizationSuccess) _causeWithoutSession = causeOf(_platform, status);
}

bool KMAuthorization::authorizeForRootWithPrompt_preauthorize_allowInteraction(std::string_view /*prompt*/,
                                                                               bool preauthorize, bool allowInteraction) {
  if (obtainRight(preauthorize, allowInteraction)) return true;
  _platform.report.fail({platform::Ending::refused, "take over the rights", "", std::exchange(_cause, {})});
  return false;
}

bool KMAuthorization::obtainRight(bool preauthorize, bool allowInteraction) {
  AuthorizationFlags flags = platform::kAuthorizationFlagExtendRights;
  if (preauthorize) flags |= platform::kAuthorizationFlagPreAuthorize;
  if (allowInteraction) flags |= platform::kAuthorizationFlagInteractionAllowed;
  const auto status = _platform.authorizationServices.copyRights(_authorization, _rights, flags);
  if (status == platform::errAuthorizationSuccess) {
    _platform.report.expectNothing();
    return true;
  }
  const bool isWithoutSession = _authorization == 0 && !_causeWithoutSession.empty();
  _cause = isWithoutSession ? _causeWithoutSession : causeOf(_platform, status);
  return false;
}

bool KMAuthorization::releaseRights() {
  if (_authorization == 0) return true;
  const AuthorizationFlags flags =
      _useDefaultFlags ? platform::kAuthorizationFlagDefaults : platform::kAuthorizationFlagDestroyRights;
  const auto status = _platform.authorizationServices.free(_authorization, flags);
  _authorization = 0;
  return status == platform::errAuthorizationSuccess;
}

void KMAuthorization::releaseRights(const foundation::Notification& /*notification*/) { releaseRights(); }
