#include "demo/controller/Controller.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "protocol/LastRun.h"
#include "protocol/LaunchArguments.h"
#include "sdk/LastRun.h"

namespace {

constexpr std::chrono::milliseconds lookAgain{20};

std::optional<std::string> failureOfLastRun() {
  const auto cause = sdk::lastRunValue(protocol::lastRunKey::cause);
  return cause ? std::optional("Last time: " + *cause) : std::nullopt;
}

QString info(const platform::Bundle& bundle, std::string_view key) {
  return QString::fromStdString(bundle.infoString(key).value_or(""));
}

}  // namespace

Controller::Controller(const Parts& parts)
    : _parts(parts),
      _handoff(parts.authorizationServices, parts.notificationCenter),
      _window(info(parts.bundles.mainBundle(), "CFBundleName"),
              info(parts.bundles.mainBundle(), "CFBundleShortVersionString")),
      _quitOnRequest(info(parts.bundles.mainBundle(), "CFBundleIdentifier"), [this] { quitRequested(); }) {
  _window.onClose = [this] { quitRequested(); };
  // A desktop application ends with its session.
  QDBusConnection::sessionBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected",
                                        this, SLOT(sessionEnded()));
}

std::string Controller::setting(const char* key) const { return _parts.defaults.stringForKey(key).value_or(""); }

void Controller::start() {
  if (_parts.defaults.boolForKey(protocol::resumeArgument))
    enter("Resumed its self-update");
  else
    enter(failureOfLastRun().value_or("Ready"));
  _window.onShown = [this] { windowShown(); };
  _window.show();
}

// Only now is it known what the window manager puts around the window.
void Controller::windowShown() {
  const auto frame = foundation::rectFromString(setting("KDFrame"));
  if (!frame.isEmpty()) _window.placeOnScreen(frame);
  const auto mode = setting("KDStart");
  if (!mode.empty()) whenThereIs("KDStartWhen", [this, mode] { runInstaller(mode); });
}

void Controller::whenThereIs(const char* key, const std::function<void()>& action) {
  const auto file = setting(key);
  if (file.empty() || std::filesystem::exists(file)) return action();
  QTimer::singleShot(lookAgain, this, [this, key, action] { whenThereIs(key, action); });
}

InstallerTask Controller::taskFor(const std::string& mode) const {
  InstallerTask task{.newBundle = {},
                     .installedBundle = setting("KDInstalledBundle"),
                     .isUpdate = mode == "update",
                     .mainFrame = _window.frameOnScreen()};
  if (task.installedBundle.empty()) task.installedBundle = _parts.bundles.mainBundle().bundlePath();
  if (mode != "uninstall") task.newBundle = setting("KDNewBundle");
  return task;
}

void Controller::runInstaller(const std::string& mode) {
  const auto credentials = setting("KDCredentials");
  if (credentials != "empty" && !_handoff.obtainRights()) {
    std::fprintf(stderr, "KeltoController: %s\n", _parts.authorizationServices.cause().c_str());
    return enter("Administrator rights were refused");
  }
  _installer = _parts.bundles.bundleWithPath(setting("KDInstaller"));
  const auto process = _installer ? InstallerHandoff::startInstaller(*_installer, taskFor(mode)) : std::nullopt;
  if (!process) return enter("The installer could not be started");
  enter("The installer was started");
  _handoff.whenInstallerListens(*_installer, *process, [this](const QString& connection) { installerListens(connection); });
}

void Controller::installerListens(const QString& connection) {
  if (connection.isEmpty()) return enter("The installer did not answer");
  whenThereIs("KDHandOverWhen", [this, connection] { sendCredentials(connection); });
}

void Controller::sendCredentials(const QString& connection) {
  const auto credentials = setting("KDCredentials");
  if (credentials == "none") return;
  bool sent = credentials == "wrong" ? sendWrongForm(connection) : _handoff.handOver(connection);
  if (credentials == "twice") sent = _handoff.handOver(connection) && sent;
  enter(sent ? "The rights were handed over" : "The rights could not be handed over");
}

bool Controller::sendWrongForm(const QString& connection) {
  platform::AuthorizationExternalForm form;
  form.bytes.fill(std::byte{0x5A});
  return _handoff.send(form, connection);
}

void Controller::quitRequested() {
  if (_parts.defaults.boolForKey("KDRefuseToQuit")) return enter("Asked to quit, and stays");
  enter("Asked to quit");
  QCoreApplication::exit();
}

void Controller::sessionEnded() { QCoreApplication::exit(); }

void Controller::enter(const std::string& state) {
  _window.showState(QString::fromStdString(state));
  std::puts(state.c_str());
  std::fflush(stdout);
}
