// A small controller, to show and to test how an application updates itself through the controller library.
//
// Started with "-KTResumeSelfUpdate YES", as the installer starts the new version after a self-update, it says so. Besides
// it takes these user defaults, usually as arguments ("-Key value"):
//   KDStart MODE                   starts the installer at once: "update", "install" or "uninstall"
//   KDStartWhen FILE               starts it not before there is such a file
//   KDInstaller BUNDLE             the installer
//   KDNewBundle BUNDLE             what it is to install
//   KDInstalledBundle BUNDLE       what it is to replace or remove; this bundle without the switch
//   KDFrame "{{x, y}, {w, h}}"     where the window is, origin bottom-left
// and, to see what the installer does then:
//   KDHandOverWhen FILE            sends the rights not before there is such a file
//   KDRefuseToQuit YES             stays when asked to quit
#include <QApplication>
#include <QStyleFactory>

#include "demo/controller/Controller.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"

int main(int argumentCount, char** arguments) {
  const bool isResumed = kelto_take_resume_argument(&argumentCount, arguments) != 0;
  platform::Linux::SystemLog log("KeltoController");
  const platform::Linux::Bundles bundles(log);
  const auto identifier = bundles.mainBundle().bundleIdentifier().value_or("");
  const platform::Linux::UserDefaults defaults(argumentCount, arguments, identifier, log);

  // The arguments are the user defaults' and none of Qt's.
  int onlyName = 1;
  QApplication application(onlyName, arguments);
  QApplication::setStyle("Fusion");
  QApplication::setQuitOnLastWindowClosed(false);

  Controller controller(bundles.mainBundle(), defaults);
  controller.start(isResumed);
  return QApplication::exec();
}
