// The delegate once the controller has quit: install or update, relaunch, uninstall.
#include "app/InstallerTexts.h"
#include "app/KMInstallerAppDelegate.h"
#include "foundation/text/Path.h"
#include "privileged/KMAuthorization.h"
#include "protocol/LaunchArguments.h"
#include "protocol/ToolProtocol.h"

using foundation::Path::appending;
using foundation::Path::deletingExtension;
using foundation::Path::deletingLastComponent;
using foundation::Path::lastComponent;

namespace {

constexpr std::string_view localLibraryFolder = "/Library";

// The value that the controller's preferences get after an upgrade.
constexpr std::string_view serverVersionKey = "LibraryServerVersion";
constexpr int serverVersion = 2;

// 0.2 in single precision: 0.20000000298023224 s.
constexpr foundation::Seconds terminateDelay{static_cast<double>(0.2F)};

}  // namespace

void KMInstallerAppDelegate::installApplication(const void* /*sender*/) {
  _dstPath = appending(deletingLastComponent(_trashPath.value_or("")), lastComponent(_srcPath.value_or("")));
  if (!replaceInstalledBundle() || !renameToDestination()) return presentGeneralFailure();
  if (libraryServerInstalled()) upgradeLibraryServer();
  launchApplication(this);
}

bool KMInstallerAppDelegate::replaceInstalledBundle() {
  KMAuthorization* session = KMAuthorization::sharedInstance();
  return session != nullptr && session->replaceItemAtPath_withItemAtPath(_trashPath, _srcPath);
}

// The new bundle sits under the old file name now. It gets its own, unless something has that name already.
bool KMInstallerAppDelegate::renameToDestination() {
  const auto& files = _platform.fileManager;
  if (files.fileExistsAtPath(*_dstPath) || !files.fileExistsAtPath(_trashPath.value_or(""))) return true;
  KMAuthorization* session = KMAuthorization::sharedInstance();
  return session != nullptr && session->moveItemAtPath_toPath(_trashPath, _dstPath);
}

void KMInstallerAppDelegate::upgradeLibraryServer() {
  KMAuthorization* session = KMAuthorization::sharedInstance();
  const KMAuthorization::Instructions instructions{{protocol::commandKey, protocol::upgradeServerCommand},
                                                   {protocol::filePathKey, *_dstPath}};
  if (session != nullptr && session->resultFromToolWithPrompt_instructions_output("", instructions, nullptr)) {
    _platform.shell.system(
        foundation::formatted("defaults write %@ %@ %d", _branding.defaultsDomain, serverVersionKey, serverVersion));
    return;
  }
  // Unlike in every other alert, headline and text are swapped, and the run goes on.
  runAlert(localized(InstallerTexts::unexpectedErrorMessage), localized(InstallerTexts::unexpectedErrorSubtitle));
}

void KMInstallerAppDelegate::launchApplication(const void* /*sender*/) {
  releaseRights();
  const platform::LaunchConfiguration resume{{std::string("-") + protocol::resumeArgument, "YES"}};
  _platform.workspace.launchApplication(_dstPath.value_or(""), platform::NSWorkspaceLaunchDefault,
                                        _isUpdate ? &resume : nullptr);
  _platform.runLoop.performAfterDelay(terminateDelay, this, [this] { _platform.application.terminate(this); });
}

void KMInstallerAppDelegate::uninstallApplication(const void* /*sender*/) {
  const std::string path = _trashPath.value_or("");
  if (_platform.fileManager.fileExistsAtPath(path)) {
    KMAuthorization* session = KMAuthorization::sharedInstance();
    if (session == nullptr || !session->trashItemAtPath(_trashPath)) {
      const std::string name = deletingExtension(lastComponent(path));
      return presentErrorMessage_title(localized(InstallerTexts::unableToUninstallMessage, name),
                                       localized(InstallerTexts::unableToUninstallSubtitle));
    }
  }
  _platform.application.terminate(this);
}

bool KMInstallerAppDelegate::libraryServerInstalled() const {
  if (!_branding.server) return false;
  const auto& server = *_branding.server;
  const auto& files = _platform.fileManager;
  const auto folders =
      files.searchPathForDirectories(platform::SearchPathDirectory::library, platform::NSLocalDomainMask, false);
  const std::string library = folders.empty() ? std::string(localLibraryFolder) : folders.front();
  if (!files.fileExistsAtPath(server.marker)) return false;
  if (!files.fileExistsAtPath(appending(library, server.definition))) return false;
  if (!files.fileExistsAtPath(appending(library, server.program))) return false;
  const auto job = _platform.serviceManagement.copyJobDictionary(server.label);
  return job && job->contains("PID");
}
