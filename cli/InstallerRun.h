#pragma once
// A run of the installer without its window. The command line is controller and installer in one: it obtains the rights,
// hands them over to the installer's own delegate, and leaves all that follows to it. Main thread.
#include <functional>
#include <memory>

#include "app/KMInstallerAppDelegate.h"
#include "platform/Platform.h"
#include "privileged/KMAuthorization.h"

namespace cli {

class InstallerRun {
 public:
  struct Hooks {
    // An administrator may be asked for a password from now on.
    std::function<void()> onQuestion = [] {};
    // The rights are held. Returns when the application may be asked to quit; false when the run is over.
    std::function<bool()> mayGoOn = [] { return true; };
  };

  // `platform` outlives the run.
  InstallerRun(platform::Platform& platform, Hooks hooks);

  // Obtains the rights and hands them over; the run goes on from the run loop. False when it is over: the report of the
  // platform says why.
  bool start();

 private:
  bool obtainRights();
  bool handOver();

  platform::Platform& _platform;
  Hooks _hooks;
  std::shared_ptr<KMAuthorization> _rights;
  KMInstallerAppDelegate _delegate;
};

}  // namespace cli
