// The main function of the tests that need a display: one of their own, and one application object.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>
#include <cstdlib>
#include <memory>

#include "platform/linux/qt/Display.h"
#include "platform/linux/qt/Look.h"
#include "tests/platform/linux/qt/TestApplication.h"
#include "tests/support/PrivateDisplay.h"

int main(int argc, char** argv) {
  if (std::getenv(tests::applicationRole) != nullptr) return tests::runTestApplication(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  const QTemporaryDir home;
  for (const char* variable : {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
    setenv(variable, home.path().toUtf8().constData(), 1);
  // Programs started here must not talk to the machine's services.
  for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
    setenv(variable, ("unix:path=" + home.filePath("no-bus")).toUtf8().constData(), 1);
  const tests::PrivateDisplay display;
  auto environment = std::make_unique<platform::Linux::Display::StartUpEnvironment>("xcb");
  QApplication application(argc, argv);
  environment.reset();
  platform::Linux::applyLook();
  return RUN_ALL_TESTS();
}
