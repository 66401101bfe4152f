#include "privileged/KMAuthorization.h"

#include <cstring>

using platform::AuthorizationExternalForm;
using platform::AuthorizationFlags;
using platform::AuthorizationRef;

KMAuthorization* KMAuthorization::sharedInstance() {
  platform::Platform& installed = platform::current();
  return installed.process.once<KMAuthorization>([&] { return init(installed); });
}

std::shared_ptr<KMAuthorization> KMAuthorization::init(platform::Platform& platform) {
  AuthorizationRef authorization = 0;
  const auto status = platform.authorizationServices.create(platform::kAuthorizationFlagDefaults, authorization);
  if (status != platform::errAuthorizationSuccess) return nullptr;
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
  if (!releaseRights() || !isWhole) return;
  _platform.authorizationServices.createFromExternalForm(form, _authorization);
}

bool KMAuthorization::authorizeForRootWithPrompt_preauthorize_allowInteraction(std::string_view /*prompt*/,
                                                                               bool preauthorize, bool allowInteraction) {
  AuthorizationFlags flags = platform::kAuthorizationFlagExtendRights;
  if (preauthorize) flags |= platform::kAuthorizationFlagPreAuthorize;
  if (allowInteraction) flags |= platform::kAuthorizationFlagInteractionAllowed;
  return _platform.authorizationServices.copyRights(_authorization, _rights, flags) == platform::errAuthorizationSuccess;
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
