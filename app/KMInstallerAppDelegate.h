#pragma once
// The installer's application delegate: the whole run from launch to termination, for its three modes.
//
// Main thread only. Every step schedules the next as a delayed call or timer on the main run loop, so the window stays live
// between steps. Every failure ends the run through presentErrorMessage_title, except a failed upgrade of the Library
// Server, which only shows an alert. Nothing is retried.
//
// No single value holds the mode: the window's height and texts look at isUpdate first and then at isUninstall, the choice
// between installing and uninstalling looks at isUninstall alone, the relaunch arguments look at isUpdate alone. With both
// set the wizard shows the update texts and the run uninstalls.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Platform.h"
#include "protocol/Branding.h"

class KMInstallerAppDelegate final : public platform::ApplicationDelegate {
 public:
  // `platform` outlives the delegate.
  explicit KMInstallerAppDelegate(platform::Platform& platform) : _platform(platform) {}

  // Called by the framework.
  void connectOutlet(std::string_view name, const std::shared_ptr<platform::InterfaceElement>& element) override;
  void applicationDidFinishLaunching(const foundation::Notification& notification) override;
  void applicationWillTerminate(const foundation::Notification& notification) override;

  // The credentials notification: `protocol::credentialsKey` in its user information holds the controller's rights in
  // external form. A second notification is handled from the start again.
  void didReceiveCredentials(const foundation::Notification& notification);
  // The time-out for that notification.
  void didNotReceiveCredentials();

  // Asks every running copy of the controller to quit and waits for it, polling, without ever forcing one.
  void quitApplications(const void* sender);
  void pingQuittingApplications(foundation::Timer& timer);

  void installApplication(const void* sender);
  void uninstallApplication(const void* sender);
  // Gives the rights back, starts the controller from its new place and ends the run shortly after.
  void launchApplication(const void* sender);

  // The one way of failing: a modal alert with `title` as headline and `message` as informative text, then termination.
  void presentErrorMessage_title(std::string_view message, std::string_view title);

  // Gives the rights back if they are held; may be called again.
  void releaseRights();
  // True when the Library Server is installed and running at this moment.
  [[nodiscard]] bool libraryServerInstalled() const;

  // Paths: the new bundle (nullopt when uninstalling), the place where it ends up, and the installed bundle.
  [[nodiscard]] const std::optional<std::string>& srcPath() const { return _srcPath; }
  [[nodiscard]] const std::optional<std::string>& dstPath() const { return _dstPath; }
  [[nodiscard]] const std::optional<std::string>& trashPath() const { return _trashPath; }
  // The controller's identifier and name.
  [[nodiscard]] const std::optional<std::string>& bundleId() const { return _bundleId; }
  [[nodiscard]] const std::optional<std::string>& bundleName() const { return _bundleName; }
  // The deadline for all running copies of the controller to quit.
  [[nodiscard]] const std::optional<foundation::Date>& errorAt() const { return _errorAt; }
  [[nodiscard]] bool isUpdate() const { return _isUpdate; }
  [[nodiscard]] bool isUninstall() const { return _isUninstall; }
  // True while the administrator rights are held.
  [[nodiscard]] bool authorized() const { return _authorized; }

 private:
  [[nodiscard]] bool readBranding();
  void readLaunchParameters();
  void readControllerBundle();
  void placeWindow();
  void fillTexts();
  void startWaitingForCredentials();
  void quitFinished();
  [[nodiscard]] bool replaceInstalledBundle();
  [[nodiscard]] bool renameToDestination();
  void upgradeLibraryServer();
  void presentGeneralFailure();
  void runAlert(std::string_view headline, std::string_view informativeText);

  platform::Platform& _platform;
  protocol::Branding _branding;
  std::optional<std::string> _srcPath;
  std::optional<std::string> _dstPath;
  std::optional<std::string> _trashPath;
  std::optional<std::string> _bundleId;
  std::optional<std::string> _bundleName;
  std::optional<foundation::Date> _errorAt;
  bool _isUpdate = false;
  bool _isUninstall = false;
  bool _authorized = false;
  std::weak_ptr<platform::Window> _window;
  std::weak_ptr<platform::TextField> _titleText;
  std::weak_ptr<platform::TextField> _bodyText;
  std::weak_ptr<platform::Button> _cancelButton;
  std::weak_ptr<platform::Button> _nextButton;
  std::weak_ptr<platform::ProgressIndicator> _progressBar;
};
