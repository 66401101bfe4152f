// The delegate from launch until the controller has quit, and its ways of ending. KMInstallerAppDelegate+Install.cpp takes
// over from there.
#include "app/KMInstallerAppDelegate.h"

#include "app/InstallerTexts.h"
#include "foundation/text/Path.h"
#include "kit/KTLocalizer.h"
#include "privileged/KMAuthorization.h"
#include "protocol/Credentials.h"

using foundation::Seconds;

namespace {

constexpr Seconds credentialsTimeout{5.0};
// From authorization to quitting the controller, so that the wizard can be seen.
constexpr Seconds quitDelay{1.0};
constexpr Seconds quitTimeout{5.0};
// 0.2 in single precision: 0.20000000298023224 s.
constexpr Seconds pollInterval{static_cast<double>(0.2F)};

// Nothing without a path: the formatter then shows "(null)".
std::optional<std::string> nameOfFolderAbove(const std::optional<std::string>& path) {
  if (!path) return std::nullopt;
  return foundation::Path::lastComponent(foundation::Path::deletingLastComponent(*path));
}

}  // namespace

void KMInstallerAppDelegate::applicationDidFinishLaunching(const foundation::Notification& /*notification*/) {
  if (!readBranding()) return _platform.application.terminate(this);
  readLaunchParameters();
  _platform.distributedNotificationCenter.addObserver(
      protocol::credentialsNotification,
      [this](const foundation::Notification& notification) { didReceiveCredentials(notification); });
  readControllerBundle();
  placeWindow();
  fillTexts();
  if (const auto window = _window.lock()) window->makeKeyAndOrderFront();
  if (const auto progressBar = _progressBar.lock()) {
    progressBar->setUsesThreadedAnimation(true);
    progressBar->startAnimation();
  }
  startWaitingForCredentials();
}

void KMInstallerAppDelegate::applicationWillTerminate(const foundation::Notification& /*notification*/) { releaseRights(); }

void KMInstallerAppDelegate::startWaitingForCredentials() {
  if (!_bundleId) return presentGeneralFailure();
  _platform.runLoop.performAfterDelay(credentialsTimeout, this, [this] { didNotReceiveCredentials(); });
}

void KMInstallerAppDelegate::didNotReceiveCredentials() { presentGeneralFailure(); }

void KMInstallerAppDelegate::didReceiveCredentials(const foundation::Notification& notification) {
  _platform.runLoop.cancelPreviousPerformRequests(this);
  const auto credentials = notification.userInfo.find(protocol::credentialsKey);
  if (credentials == notification.userInfo.end()) return presentGeneralFailure();
  // The session refuses a value of another kind than data as it refuses data that is too short.
  const auto* data = credentials->second.as<foundation::PropertyList::Data>();
  KMAuthorization* session = KMAuthorization::sharedInstance();
  if (session != nullptr) session->setExternalRights(data != nullptr ? *data : foundation::PropertyList::Data{});
  _authorized = session != nullptr && session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false);
  if (_authorized) {
    _platform.runLoop.performAfterDelay(quitDelay, this, [this] { quitApplications(this); });
    return;
  }
  presentErrorMessage_title(localized(InstallerTexts::badPermissionMessage, nameOfFolderAbove(_trashPath)),
                            localized(InstallerTexts::badPermissionSubtitle));
}

void KMInstallerAppDelegate::quitApplications(const void* /*sender*/) {
  const auto copies = _platform.workspace.runningApplications(_bundleId.value_or(""));
  if (copies.empty()) return quitFinished();
  for (const auto& copy : copies) copy->terminate();
  _errorAt = foundation::dateByAdding(_platform.runLoop.currentDate(), quitTimeout);
  _platform.runLoop.scheduledTimer(pollInterval, true,
                                   [this](foundation::Timer& timer) { pingQuittingApplications(timer); });
}

void KMInstallerAppDelegate::pingQuittingApplications(foundation::Timer& timer) {
  if (_platform.workspace.runningApplications(_bundleId.value_or("")).empty()) {
    timer.invalidate();
    return quitFinished();
  }
  if (!_errorAt || _platform.runLoop.currentDate() <= *_errorAt) return;
  timer.invalidate();
  presentErrorMessage_title(localized(InstallerTexts::runningMessage),
                            localized(InstallerTexts::runningSubtitle, _bundleName));
}

void KMInstallerAppDelegate::quitFinished() {
  if (_isUninstall)
    uninstallApplication(this);
  else
    installApplication(this);
}

void KMInstallerAppDelegate::presentErrorMessage_title(std::string_view message, std::string_view title) {
  runAlert(title, message);
  _platform.application.terminate(this);
}

void KMInstallerAppDelegate::presentGeneralFailure() {
  presentErrorMessage_title(localized(InstallerTexts::unexpectedErrorMessage),
                            localized(InstallerTexts::unexpectedErrorSubtitle));
}

void KMInstallerAppDelegate::runAlert(std::string_view headline, std::string_view informativeText) {
  _platform.application.runModal({.messageText = std::string(headline),
                                  .informativeText = foundation::formatted("%@", informativeText),
                                  .defaultButton = localized(InstallerTexts::ok)});
}

void KMInstallerAppDelegate::releaseRights() {
  if (!_authorized) return;
  if (KMAuthorization* session = KMAuthorization::sharedInstance()) session->releaseRights();
  _authorized = false;
}
