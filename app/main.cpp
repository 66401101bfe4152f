#include "app/KMInstallerAppDelegate.h"
#include "kit/NSUserDefaults+Debug.h"
#include "protocol/LaunchArguments.h"
#include "ui/KMEmbeddedWindowBackgroundView.h"

namespace {

namespace debug = NSUserDefaults::Debug;

constexpr std::string_view help =
    R"help(Usage: %@ -KMInstallToolTrashPath BUNDLE [-KMInstallToolSrcPath BUNDLE] [-KMInstallToolIsUpdate YES]
                      [-KMInstallToolMainFrame "{{x, y}, {width, height}}"]

Replaces an application bundle by a new one, or moves it to the Trash. The application itself starts this
program, as the user who runs it, and hands over the administrator rights that it holds.

  -KMInstallToolTrashPath BUNDLE    the installed bundle, which is replaced or removed
  -KMInstallToolSrcPath BUNDLE      the new bundle; without it the installed bundle is removed
  -KMInstallToolIsUpdate YES        the application updates itself, and resumes that when it is started again
  -KMInstallToolMainFrame FRAME     the application's window, over which the installer shows its own
  --help                            shows this text
  --version                         shows the version

Paths are absolute. -AppleLanguages "(de)" chooses the language.

Exit status:
  0  done
  1  failed
  2  bad arguments
  3  no display
  4  the administrator rights were refused, or none were handed over
  5  the application is still running
  6  cancelled by the user or by a signal
Unless it is 0, one line in the system log and on standard error names the step, the path and the cause.
)help";

}  // namespace

int main(int argc, char** argv) {
  const platform::CommandLine commandLine{
      help,
      {protocol::sourcePathArgument, protocol::trashPathArgument, protocol::isUpdateArgument, protocol::mainFrameArgument,
       "AppleLanguages", debug::inAppDebugOptionsKey, debug::debugKey, debug::loggingLevelKey, debug::purgeCachesKey,
       debug::purgePreferencesKey}};
  return platform::ApplicationMain(
      argc, argv,
      {{"KMInstallerAppDelegate",
        [](platform::Platform& platform) { return std::make_unique<KMInstallerAppDelegate>(platform); }}},
      {{"KMEmbeddedWindowBackgroundView", [] { return std::make_shared<KMEmbeddedWindowBackgroundView>(); }}},
      &commandLine);
}
