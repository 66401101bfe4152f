#include "app/KMInstallerAppDelegate.h"
#include "ui/KMEmbeddedWindowBackgroundView.h"

int main(int argc, char** argv) {
  return platform::ApplicationMain(
      argc, argv,
      {{"KMInstallerAppDelegate",
        [](platform::Platform& platform) { return std::make_unique<KMInstallerAppDelegate>(platform); }}},
      {{"KMEmbeddedWindowBackgroundView", [] { return std::make_shared<KMEmbeddedWindowBackgroundView>(); }}});
}
