#include "cli/InstallerRun.h"

#include "protocol/Credentials.h"

namespace cli {

InstallerRun::InstallerRun(platform::Platform& platform, Hooks hooks)
    : _platform(platform), _hooks(std::move(hooks)), _delegate(platform) {
  _platform.defaultNotificationCenter.addObserver(
      foundation::applicationWillTerminateNotification,
      [this](const foundation::Notification& notification) { _delegate.applicationWillTerminate(notification); });
}

bool InstallerRun::start() {
  // The question comes first: who refuses it still has the application open.
  if (obtainRights() && _hooks.mayGoOn() && obtainRights() && handOver()) return true;
  _platform.application.terminate(this);
  return false;
}

// Nobody is asked again as long as the rights are held.
bool InstallerRun::obtainRights() {
  if (_rights == nullptr) {
    _hooks.onQuestion();
    _rights = KMAuthorization::init(_platform);
  }
  return _rights != nullptr && _rights->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, true);
}

bool InstallerRun::handOver() {
  const auto credentials = _rights->externalRights();
  if (!credentials) {
    _platform.report.fail({platform::Ending::refused, "hand over the rights", "", _platform.authorizationServices.cause()});
    return false;
  }
  _delegate.applicationDidFinishLaunching({});
  return _platform.distributedNotificationCenter.post(
      {protocol::credentialsNotification, "", {{protocol::credentialsKey, *credentials}}});
}

}  // namespace cli
