// The application framework's main function on Linux: the parts of the platform, put together.
#include <unistd.h>

#include <QApplication>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/BrokerBounds.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/CommandLine.h"
#include "platform/linux/DistributedNotificationCenter.h"
#include "platform/linux/LastRun.h"
#include "platform/linux/LaunchCheck.h"
#include "platform/linux/LoggingHost.h"
#include "platform/linux/PrivateTemporaryFolder.h"
#include "platform/linux/ReportedSession.h"
#include "platform/linux/ResourcePath.h"
#include "platform/linux/ServiceManagement.h"
#include "platform/linux/Shell.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"
#include "platform/linux/Workspace.h"
#include "platform/linux/qt/Display.h"
#include "platform/linux/qt/Language.h"
#include "platform/linux/qt/Look.h"
#include "platform/linux/qt/ParentWindow.h"
#include "platform/linux/qt/QtApplication.h"
#include "platform/linux/qt/QtBlockingCall.h"
#include "platform/linux/qt/QtViewResources.h"
#include "platform/linux/qt/SettingsPortal.h"
#include "platform/linux/qt/TerminationSignals.h"

namespace platform::Linux {
namespace {

// The program's name: what the command line calls it.
std::string programName(const char* path) {
  const std::string text = path == nullptr ? "" : path;
  return text.substr(text.find_last_of('/') + 1);
}

// Hands what arrives on the bus to a listener, for as long as there is a bus.
template <class Listener>
std::unique_ptr<QSocketNotifier> watch(Listener& listener) {
  if (listener.fileDescriptor() < 0) return nullptr;
  auto notifier = std::make_unique<QSocketNotifier>(listener.fileDescriptor(), QSocketNotifier::Read);
  QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [&listener, watched = notifier.get()] {
    listener.process();
    if (listener.fileDescriptor() < 0) watched->setEnabled(false);
  });
  return notifier;
}

// Everything that lives as long as the application runs. Members are made in this order and go in the other.
class Framework {
 public:
  Framework(int argc, char** argv, SystemLog& log, const std::vector<ViewClass>& viewClasses,
            std::optional<protocol::ParentWindow> parent)
      : _log(log),
        _viewClasses(viewClasses),
        _parent(std::move(parent), log),
        _defaults(argc, argv, _bundles.mainBundle().bundleIdentifier().value_or(""), log),
        _application(_runLoop, _center, _bundles.mainBundle().infoString("CFBundleName").value_or(programName(argv[0]))),
        _distributedCenter(_bundles.mainBundle().bundleIdentifier().value_or(""), log,
                           [this](std::function<void()> action) { _runLoop.deliver(std::move(action)); }) {
    _platform.views.resources = &_viewResources;
    putResourcesFirstOnPath(_bundles.mainBundle());
    // The name of its desktop entry: lists of windows take name and picture from there.
    QGuiApplication::setDesktopFileName(
        QString::fromStdString(_bundles.mainBundle().bundleIdentifier().value_or(programName(argv[0]))));
  }

  int run(const std::vector<DelegateClass>& classes) {
    const auto name = _bundles.mainBundle().infoString("NSMainNibFile").value_or("MainWindow");
    const auto path = _bundles.mainBundle().pathForResource(name, "ui");
    if (!path) {
      _log.log("the bundle " + _bundles.mainBundle().bundlePath() + " has no interface description " + name + ".ui");
      return static_cast<int>(Ending::failed);
    }
    const auto notifier = watch(_distributedCenter);
    _platform.report.expect(_refusal.value_or(failureWithoutRights(_defaults)));
    _application.onFailure = [this] { _distributedCenter.giveUpNames(); };
    _authorizationServices.onToolRuns = [this](bool runs) {
      _toolHasRun = true;
      _application.setJobRuns(runs);
    };
    _workspace.onLaunch = [this] { _lastRun.write(_platform.report.failure()); };
    _application.onShow = [this](QWindow& window) { _parent.adopt(window); };
    _applications.onAsk = [this] { _parent.letGo(); };
    _applications.onWait = [this](const std::vector<pid_t>& copies) { _application.stayBehind(copies); };
    const TerminationSignals signals([this](const char* signal) { endBecauseOf(signal); });
    const int status = _application.run(_platform, *path, classes, _viewClasses);
    _lastRun.write(_platform.report.failure());
    return status;
  }

 private:
  // In the ordinary way, if that is possible in time: a bus or a broker that does not answer can hold the main thread. The
  // broker then ends the rights with the connection. Once a tool has been started, the run goes to its end.
  void endBecauseOf(const char* signal) {
    constexpr std::chrono::milliseconds patience{1500};
    _application.terminateOnSignal(signal);
    QTimer::singleShot(patience, Qt::PreciseTimer, qApp, [this, signal] {
      if (_application.isTerminated() || _toolHasRun) return;
      _platform.report.cancel(signal);
      _lastRun.write(_platform.report.failure());
      _temporaryFolder.reset();
      std::_Exit(static_cast<int>(_platform.report.ending()));
    });
  }

  SystemLog& _log;
  const std::vector<ViewClass>& _viewClasses;
  ParentWindow _parent;
  Bundles _bundles{_log, [this] { return preferredLanguages(_defaults); }};
  UserDefaults _defaults;
  const std::optional<Failure> _refusal = reasonToRefuse(_defaults, readOnlyFolderAround);
  const std::optional<NewBundle> _newBundle = newBundle(_defaults, _bundles);
  const LastRun _lastRun{_defaults, _bundles, _log};
  foundation::NotificationCenter _center;
  QtRunLoop _runLoop;
  QtBlockingCall _blockingCall{_runLoop};
  QtApplication _application;
  DistributedNotificationCenter _distributedCenter;
  CheckedFiles _fileManager{_newBundle};
  // The names of the files of a job (see NSString::KAPathExtensions::temporaryPath).
  std::optional<TemporaryFolderClaim> _temporaryFolder{std::in_place, "Kelto", 10};
  bool _toolHasRun = false;
  AuthorizationServices _authorizationServices{_blockingCall, _log};
  Workspace _applications{_bundles, _log, _blockingCall, installedBundle(_defaults)};
  ServiceManagement _serviceManagement{_log};
  Shell _shell{_blockingCall};
  LoggingHost _loggingHost;
  IconAfterFirstPaint _icon{_bundles.mainBundle()};
  QtViewResources _viewResources{
      _bundles.mainBundle(), {_runLoop, _viewClasses}, [this] { _application.terminateOnRequest(); }};
  CheckedBundles _checkedBundles{_bundles, _refusal, _platform.report};
  ReportedWorkspace _workspace{_applications, _bundles, _newBundle, _platform.report};
  Platform _platform{{_defaults, _center, _checkedBundles, _fileManager, _log, &_loggingHost.host},
                     _application,
                     _runLoop,
                     _distributedCenter,
                     _authorizationServices,
                     _workspace,
                     _serviceManagement,
                     _shell};
  Installation _installation{_platform};
};

}  // namespace
}  // namespace platform::Linux

namespace platform {

int ApplicationMain(int argc, char** argv, const std::vector<DelegateClass>& classes,
                    const std::vector<ViewClass>& viewClasses, const CommandLine* commandLine) {
  const auto name = Linux::programName(argv[0]);
  Linux::SystemLog log(name);
  if (commandLine != nullptr) {
    const Linux::Bundles bundles(log);
    if (const auto status = Linux::answerToCommandLine(argc, argv, *commandLine, name, bundles.mainBundle(), log))
      return *status;
  }
  auto parent = Linux::takeParentWindow(log);
  const auto display = Linux::Display::choose(name, parent && !parent->waylandHandle.empty());
  if (!display.problem.empty()) {
    RunReport(log).fail({Ending::noDisplay, "open the display", "", display.problem});
    return static_cast<int>(Ending::noDisplay);
  }
  if (::geteuid() == 0) log.log("It runs as root; start it as the user whose application it is. Nothing here needs root.");
  if (!display.note.empty()) log.log(display.note);
  // Logging lets the kernel fence its threads. The first time takes 20 ms, unless there is only one thread yet.
  Linux::ProcessInfo().fenceOtherThreads();
  // The arguments are the user defaults' and none of Qt's: it gets the name alone.
  int count = 1;
  char* nameOnly[] = {argv[0], nullptr};
  Linux::SettingsPortal desktop;  // asked early, so that a portal that runs has answered before the window is made
  const auto localization = Linux::chosenLocalization(argc, argv);
  auto environment =
      std::make_unique<Linux::Display::StartUpEnvironment>(display.qtPlatform, Linux::fontLanguage(localization));
  QApplication application(count, nameOnly);
  desktop.process();
  Linux::applyLook(desktop.settings());
  Linux::applyLanguage(localization);
  environment.reset();
  desktop.onChange = [&] { Linux::applyLook(desktop.settings()); };
  const auto desktopNotifier = Linux::watch(desktop);
  return Linux::Framework(argc, argv, log, viewClasses, std::move(parent)).run(classes);
}

}  // namespace platform
