#pragma once
// The demo controller: its window, its hand-off to the installer, and how it takes the request to quit.
//
// Main thread only. Everything that happens is also said on standard output, a line each. It changes nothing on disk.
#include <functional>
#include <memory>
#include <string>

#include "demo/controller/ControllerWindow.h"
#include "demo/controller/InstallerHandoff.h"
#include "demo/controller/QuitOnRequest.h"
#include "platform/Bundle.h"
#include "platform/UserDefaults.h"

class Controller final : public QObject {
  Q_OBJECT

 public:
  struct Parts {
    const platform::Bundles& bundles;
    const platform::UserDefaults& defaults;
    platform::Linux::AuthorizationServices& authorizationServices;
    platform::Linux::DistributedNotificationCenter& notificationCenter;
  };

  // The parts outlive this object.
  explicit Controller(const Parts& parts);

  // Shows the window, and then starts the installer when the switch KDStart says so.
  void start();

 private Q_SLOTS:
  void sessionEnded();

 private:
  void windowShown();
  // Calls `action` once the file exists that a switch names; at once without the switch.
  void whenThereIs(const char* key, const std::function<void()>& action);
  void runInstaller(const std::string& mode);
  [[nodiscard]] InstallerTask taskFor(const std::string& mode) const;
  void installerListens(const QString& connection);
  void sendCredentials(const QString& connection);
  bool sendWrongForm(const QString& connection);
  void quitRequested();
  void enter(const std::string& state);
  [[nodiscard]] std::string setting(const char* key) const;

  Parts _parts;
  InstallerHandoff _handoff;
  ControllerWindow _window;
  QuitOnRequest _quitOnRequest;
  std::shared_ptr<const platform::Bundle> _installer;
};
