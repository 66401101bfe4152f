#pragma once
// A delegate over the fake platform: two demo bundles, a wizard window, a controller that can be made to run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/KMInstallerAppDelegate.h"
#include "protocol/Credentials.h"
#include "protocol/LaunchArguments.h"
#include "tests/support/FakeTool.h"

namespace tests {

using namespace std::chrono_literals;
using foundation::Seconds;
using platform::Alert;

class KMInstallerAppDelegateTest : public testing::Test {
 protected:
  static constexpr const char* newBundle = "/tmp/new/App.app";
  static constexpr const char* installedBundle = "/Applications/App.app";

  KMInstallerAppDelegateTest() {
    fake.application.delegate = &delegate;
    fake.bundles.main.info = {{"CFBundleName", "Kelto Installer"}};
    addController(newBundle, "com.kelto.macController", "New Kelto");
    addController(installedBundle, "com.kelto.macController", "Kelto");
    // The texts are their keys, marked as found; those that take an argument show it.
    for (const char* key :
         {"<ControllerUpdateWizard_Title>", "<ControllerUpdateWizard_Installing>", "<InstallerInstallKeltoSubtitle>",
          "<InstallerInstallKeltoBody>", "<InstallerUninstallKeltoSubtitle>", "<InstallerUninstallKeltoBody>", "<Cancel>",
          "<Next>", "<Done>", "<OK>", "<InstallerUnexpectedErrorSubtitle>", "<InstallerUnexpectedErrorMessage>",
          "<InstallerBadPermissionSubtitle>", "<InstallerKeltoRunningMessage>", "<InstallerUnableToUninstallSubtitle>"})
      fake.bundles.main.strings[key] = std::string("text of ") + key;
    for (const char* key : {"<InstallerBadPermissionMessage_1>", "<InstallerKeltoRunningSubtitle_1>",
                            "<InstallerUnableToUninstallMessage_1>"})
      fake.bundles.main.strings[key] = std::string("text of ") + key + " with %@";
    platform::AuthorizationExternalForm form;
    form.bytes.fill(std::byte{7});
    fake.authorization.addForeignForm(form);
    connectOutlets();
  }

  void addController(const char* path, const char* identifier, const char* name) {
    auto bundle = std::make_shared<platform::fake::FakeBundle>();
    bundle->path = path;
    bundle->info = {{"CFBundleIdentifier", identifier}, {"CFBundleName", name}};
    fake.bundles.others[path] = bundle;
    fake.files.addFolder(path);
    fake.workspace.applications[path] = identifier;
  }

  void connectOutlets() {
    delegate.connectOutlet("window", window);
    delegate.connectOutlet("titleText", titleText);
    delegate.connectOutlet("bodyText", bodyText);
    delegate.connectOutlet("cancelButton", cancelButton);
    delegate.connectOutlet("nextButton", nextButton);
    delegate.connectOutlet("progressBar", progressBar);
  }

  void argument(const char* key, foundation::PropertyList::Value value) {
    fake.defaults.values.insert_or_assign(key, std::move(value));
  }

  void launch() { delegate.applicationDidFinishLaunching({"NSApplicationDidFinishLaunchingNotification", "", {}}); }

  void launchInstall() {
    argument(protocol::sourcePathArgument, newBundle);
    argument(protocol::trashPathArgument, installedBundle);
    launch();
  }

  void launchUpdate() {
    argument(protocol::isUpdateArgument, "YES");
    launchInstall();
  }

  void launchUninstall() {
    argument(protocol::trashPathArgument, installedBundle);
    launch();
  }

  void postCredentials(std::size_t length = 32) {
    fake.distributedNotificationCenter.post(
        {protocol::credentialsNotification,
         "any sender",
         {{protocol::credentialsKey, foundation::PropertyList::Data(length, std::byte{7})}}});
    fake.runLoop.runPending();
  }

  // True when a call that begins with `first` came before every one that begins with `second`, and both came.
  [[nodiscard]] bool inOrder(std::string_view first, std::string_view second) const {
    return fake.journal.contains(second) && fake.journal.place(first) < fake.journal.place(second);
  }

  // Hands over credentials and lets the second before the quitting pass.
  void authorize() {
    postCredentials();
    fake.runLoop.advance(1s);
  }

  std::shared_ptr<platform::fake::FakeRunningApplication> startController() {
    auto copy = std::make_shared<platform::fake::FakeRunningApplication>();
    fake.workspace.running["com.kelto.macController"].push_back(copy);
    return copy;
  }

  void quitController() { fake.workspace.running.clear(); }

  void installLibraryServer() {
    fake.files.addFile("/Users/Shared/Kelto/Shares.plist");
    fake.files.addFile("/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist");
    fake.files.addFile("/Library/Application Support/Kelto/KeltoLibraryServer");
    fake.services.jobs["com.kelto.KeltoLibraryServer"] = {{"Label", "com.kelto.KeltoLibraryServer"}, {"PID", 42}};
  }

  static Alert generalFailure() {
    return {"text of <InstallerUnexpectedErrorSubtitle>", "text of <InstallerUnexpectedErrorMessage>", "text of <OK>"};
  }

  platform::fake::FakePlatform fake;
  FakeTool tool{fake};
  KMInstallerAppDelegate delegate{fake.platform};
  std::shared_ptr<platform::fake::FakeWindow> window = std::make_shared<platform::fake::FakeWindow>(&fake.journal);
  std::shared_ptr<platform::fake::FakeTextField> titleText = std::make_shared<platform::fake::FakeTextField>(&fake.journal);
  std::shared_ptr<platform::fake::FakeTextField> bodyText = std::make_shared<platform::fake::FakeTextField>(&fake.journal);
  std::shared_ptr<platform::fake::FakeButton> cancelButton = std::make_shared<platform::fake::FakeButton>(&fake.journal);
  std::shared_ptr<platform::fake::FakeButton> nextButton = std::make_shared<platform::fake::FakeButton>(&fake.journal);
  std::shared_ptr<platform::fake::FakeProgressIndicator> progressBar =
      std::make_shared<platform::fake::FakeProgressIndicator>(&fake.journal);
};

}  // namespace tests
