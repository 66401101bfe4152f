#include "demo/controller/Controller.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <filesystem>

namespace {

constexpr std::chrono::milliseconds lookAgain{20};

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

std::optional<std::string> failureOfLastRun() {
  const auto cause = kelto::lastRun(KELTO_LAST_RUN_CAUSE);
  return cause ? std::optional("Last time: " + *cause) : std::nullopt;
}

QString info(const platform::Bundle& bundle, std::string_view key) {
  return QString::fromStdString(bundle.infoString(key).value_or(""));
}

}  // namespace

Controller::Controller(const platform::Bundle& bundle, const platform::UserDefaults& defaults)
    : _bundle(bundle),
      _defaults(defaults),
      _window(info(bundle, "CFBundleName"), info(bundle, "CFBundleShortVersionString")),
      _library(bundle.bundleIdentifier().value_or(""),
               [this](int event, int number, const std::string& text) { happened(event, number, text); }),
      _libraryIsReady(_library.fd(), QSocketNotifier::Read) {
  connect(&_libraryIsReady, &QSocketNotifier::activated, this, [this] { _library.dispatch(); });
  _window.onClose = [this] { quitRequested(); };
  // A desktop application ends with its session.
  QDBusConnection::sessionBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected",
                                        this, SLOT(sessionEnded()));
}

std::string Controller::setting(const char* key) const { return _defaults.stringForKey(key).value_or(""); }

void Controller::start(bool isResumed) {
  enter(isResumed ? "Resumed its self-update" : failureOfLastRun().value_or("Ready"));
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

void Controller::runInstaller(const std::string& mode) {
  if (const auto frame = _window.frameOnScreen())
    _library.setWindowFrame(frame->origin.x, frame->origin.y, frame->size.width, frame->size.height);
  _exported.emplace(*_window.windowHandle());
  if (!_exported->name().empty()) _library.setParentWindow(_exported->name());
  if (beginJob(mode) < 0) enter("The installer could not be started");
}

// A negative number when the paths are not absolute ones.
int Controller::beginJob(const std::string& mode) {
  if (const int result = _library.setInstaller(setting("KDInstaller")); result < 0) return result;
  auto installed = setting("KDInstalledBundle");
  if (installed.empty()) installed = _bundle.bundlePath();
  if (mode == "uninstall") return _library.remove(installed);
  const auto newBundle = setting("KDNewBundle");
  return mode == "update" ? _library.update(newBundle, installed) : _library.install(newBundle, installed);
}

void Controller::happened(int event, int number, const std::string& text) {
  if (event == KELTO_INSTALLER_STARTED) return installerStarted(number);
  if (event == KELTO_RIGHTS_HANDED_OVER) return enter("The rights were handed over");
  if (event == KELTO_QUIT_REQUESTED) return quitRequested();
  if (event == KELTO_INSTALLER_ENDED)
    return say("Process " + std::to_string(_installer) + " ended with status " + std::to_string(number));
  if (event != KELTO_FAILED) return;
  std::fprintf(stderr, "KeltoController: %s\n", text.c_str());
  enter(stateAfter(number));
}

// The library hands the rights over when its descriptor is watched again.
void Controller::installerStarted(int process) {
  _installer = process;
  enter("The installer was started");
  _libraryIsReady.setEnabled(false);
  whenThereIs("KDHandOverWhen", [this] { _libraryIsReady.setEnabled(true); });
}

const char* Controller::stateAfter(int error) const {
  if (error == KELTO_ERROR_SILENT) return "The installer did not answer";
  if (error == KELTO_ERROR_INSTALLER || error == KELTO_ERROR_NO_SESSION_BUS) return "The installer could not be started";
  return _installer != 0 ? "The rights could not be handed over" : "Administrator rights were refused";
}

void Controller::quitRequested() {
  if (_defaults.boolForKey("KDRefuseToQuit")) return enter("Asked to quit, and stays");
  enter("Asked to quit");
  QCoreApplication::exit();
}

void Controller::sessionEnded() { QCoreApplication::exit(); }

void Controller::enter(const std::string& state) {
  _window.showState(QString::fromStdString(state));
  say(state);
}
