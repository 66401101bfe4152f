// A small controller, to show and to test how one hands its rights to the installer. The part to lift is InstallerHandoff.h
// with QuitOnRequest.h.
//
// It takes these user defaults, usually as arguments ("-Key value"):
//   KTResumeSelfUpdate YES         what the installer says to the new version after a self-update
//   KDStart MODE                   starts the installer at once: "update", "install" or "uninstall"
//   KDStartWhen FILE               starts it not before there is such a file
//   KDInstaller BUNDLE             the installer
//   KDNewBundle BUNDLE             what it is to install
//   KDInstalledBundle BUNDLE       what it is to replace or remove; this bundle without the switch
//   KDFrame "{{x, y}, {w, h}}"     where the window is, origin bottom-left
// and, to see what the installer does then:
//   KDCredentials KIND             "none" sends no rights, "empty" an authorization without rights, "wrong" 32 arbitrary
//                                  bytes, "twice" sends the rights two times
//   KDHandOverWhen FILE            sends them not before there is such a file
//   KDRefuseToQuit YES             stays when asked to quit
#include <QApplication>
#include <QSocketNotifier>
#include <QStyleFactory>

#include "demo/controller/Controller.h"
#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/BlockingCall.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"

using namespace platform::Linux;

int main(int argumentCount, char** arguments) {
  platform::Linux::SystemLog log("KeltoController");
  const platform::Linux::Bundles bundles(log);
  const auto identifier = bundles.mainBundle().bundleIdentifier().value_or("");
  const platform::Linux::UserDefaults defaults(argumentCount, arguments, identifier, log);

  // The arguments are the user defaults' and none of Qt's.
  int onlyName = 1;
  QApplication application(onlyName, arguments);
  QApplication::setStyle("Fusion");
  QApplication::setQuitOnLastWindowClosed(false);

  DirectCall direct;
  platform::Linux::AuthorizationServices authorizationServices(direct, log);
  // Nothing is observed here, so nothing is ever delivered.
  platform::Linux::DistributedNotificationCenter notificationCenter(identifier, log, [](const std::function<void()>&) {});
  Controller controller({bundles, defaults, authorizationServices, notificationCenter});
  controller.start();
  return QApplication::exec();
}
