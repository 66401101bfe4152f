#pragma once
// The demo controller: its window, and what it makes of the events of the controller library.
//
// Main thread only. Everything that happens is also said on standard output, a line each. It changes nothing on disk.
#include <QSocketNotifier>
#include <functional>
#include <optional>
#include <string>

#include <kelto/controller.hpp>
#include "demo/controller/ControllerWindow.h"
#include "demo/controller/ExportedWindow.h"
#include "platform/Bundle.h"
#include "platform/UserDefaults.h"

class Controller final : public QObject {
  Q_OBJECT

 public:
  // Both outlive this object.
  Controller(const platform::Bundle& bundle, const platform::UserDefaults& defaults);

  // Shows the window, and then starts the installer when the switch KDStart says so.
  void start(bool isResumed);

 private Q_SLOTS:
  void sessionEnded();

 private:
  void windowShown();
  // Calls `action` once the file exists that a switch names; at once without the switch.
  void whenThereIs(const char* key, const std::function<void()>& action);
  void runInstaller(const std::string& mode);
  int beginJob(const std::string& mode);
  void happened(int event, int number, const std::string& text);
  void installerStarted(int process);
  [[nodiscard]] const char* stateAfter(int error) const;
  void quitRequested();
  void enter(const std::string& state);
  [[nodiscard]] std::string setting(const char* key) const;

  const platform::Bundle& _bundle;
  const platform::UserDefaults& _defaults;
  ControllerWindow _window;
  std::optional<ExportedWindow> _exported;  // once the installer is about to start
  kelto::Controller _library;
  QSocketNotifier _libraryIsReady;
  int _installer = 0;  // its process, once it was started
};
