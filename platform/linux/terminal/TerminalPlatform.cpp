#include "platform/linux/terminal/TerminalPlatform.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/BrokerBounds.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/LastRun.h"
#include "platform/linux/LaunchCheck.h"
#include "platform/linux/LoggingHost.h"
#include "platform/linux/PreferredLanguages.h"
#include "platform/linux/PrivateTemporaryFolder.h"
#include "platform/linux/ProcessFacts.h"
#include "platform/linux/ReportedSession.h"
#include "platform/linux/ResourcePath.h"
#include "platform/linux/RunLoop.h"
#include "platform/linux/RunningCopies.h"
#include "platform/linux/ServiceManagement.h"
#include "platform/linux/Shell.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"
#include "platform/linux/Workspace.h"
#include "platform/linux/terminal/Interruption.h"
#include "platform/linux/terminal/OwnNotifications.h"
#include "platform/linux/terminal/TextAgent.h"
#include "posix/Descriptor.h"

namespace platform::Linux {
namespace {

constexpr const char* programName = "kelto";

// Tells before each line, so that one that is drawn on the terminal can be taken away.
class ToldLog final : public platform::SystemLog {
 public:
  ToldLog(platform::SystemLog& log, const TerminalPlatform::Hooks& hooks) : _log(log), _hooks(hooks) {}
  void log(std::string_view line) override {
    _hooks.onLogLine();
    _log.log(line);
  }

 private:
  platform::SystemLog& _log;
  const TerminalPlatform::Hooks& _hooks;
};

// An alert is no more than the failure that it tells of, which the report writes.
class TerminalApplication final : public Application {
 public:
  TerminalApplication(RunLoop& runLoop, foundation::NotificationCenter& center, RunReport*& report)
      : _runLoop(runLoop), _center(center), _report(report) {}

  void runModal(const Alert& /*alert*/) override {
    if (!_isTerminated) _report->failAsExpected();
  }
  void terminate(const void* /*sender*/) override {
    if (std::exchange(_isTerminated, true)) return;
    _runLoop.stop();
    _center.post({std::string(foundation::applicationWillTerminateNotification), {}, {}});
  }

 private:
  RunLoop& _runLoop;
  foundation::NotificationCenter& _center;
  RunReport*& _report;
  bool _isTerminated = false;
};

// Standard output and standard error lead nowhere as long as it lives: what is started meanwhile outlives this program, and
// must not keep those waiting who read to the end of its output.
class SilencedOutputs {
 public:
  SilencedOutputs() {
    const posix::Descriptor nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
      _kept.emplace_back(::fcntl(output, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
      if (nothing) ::dup2(nothing.get(), output);
    }
  }
  ~SilencedOutputs() {
    for (std::size_t i = 0; i < _kept.size(); ++i) ::dup2(_kept[i].get(), STDOUT_FILENO + static_cast<int>(i));
  }
  SilencedOutputs(const SilencedOutputs&) = delete;
  SilencedOutputs& operator=(const SilencedOutputs&) = delete;

 private:
  std::vector<posix::Descriptor> _kept;
};

// Starts nothing when nothing is to be started.
class ToldWorkspace final : public platform::Workspace {
 public:
  ToldWorkspace(platform::Workspace& workspace, const TerminalPlatform::Hooks& hooks)
      : _workspace(workspace), _hooks(hooks) {}

  [[nodiscard]] std::vector<std::shared_ptr<platform::RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override {
    auto copies = _workspace.runningApplications(bundleIdentifier);
    if (!std::exchange(_isTold, true) && !copies.empty()) _hooks.onCopies(copies.size());
    return copies;
  }
  bool launchApplication(const std::string& path, std::uint32_t options,
                         const LaunchConfiguration* configuration) override {
    if (!relaunches) return true;
    _hooks.onLaunch();
    const SilencedOutputs silenced;
    return _workspace.launchApplication(path, options, configuration);
  }

  bool relaunches = true;

 private:
  platform::Workspace& _workspace;
  const TerminalPlatform::Hooks& _hooks;
  mutable bool _isTold = false;
};

std::vector<const char*> wordsOf(const std::vector<std::string>& arguments) {
  std::vector<const char*> words{programName};
  for (const auto& argument : arguments) words.push_back(argument.c_str());
  return words;
}

}  // namespace

// Members are made in this order and go in the other.
struct TerminalPlatform::Parts {
  Parts(const std::vector<std::string>& arguments, Hooks told) : hooks(std::move(told)), words(wordsOf(arguments)) {
    putResourcesFirstOnPath(bundles.mainBundle());
    if (!arguments.empty()) {
      lastRun.emplace(defaults, bundles, log);
      temporaryFolder.emplace("Kelto", 10);  // the names of the files of a job
      platform.report.expect(failureWithoutRights(defaults));
    }
    authorizationServices.onToolRuns = [this](bool runs) {
      toolHasRun = true;
      hooks.onToolRuns(runs);
    };
    call.onSignal = [this](const std::string& signal) { endBecauseOf(signal); };
    workspace.onLaunch = [this] { lastRun->write(platform.report.failure()); };
  }

  // A call that waits for a bus, a broker or a person is left alone; the broker ends the rights with the connection. Once a
  // tool has been started, the run goes to its end.
  void endBecauseOf(const std::string& signal) {
    if (toolHasRun) return;
    agent.reset();
    platform.report.cancel(signal);
    if (lastRun) lastRun->write(platform.report.failure());
    temporaryFolder.reset();
    std::_Exit(static_cast<int>(platform.report.ending()));
  }

  TerminationRequests requests;
  const Hooks hooks;
  const std::vector<const char*> words;
  SystemLog systemLog{programName};
  ToldLog log{systemLog, hooks};
  Bundles bundles{log, [this] { return preferredLanguages(defaults); }};
  UserDefaults defaults{static_cast<int>(words.size()), words.data(), bundles.mainBundle().bundleIdentifier().value_or(""),
                        log};
  const std::optional<Failure> refusal = reasonToRefuse(defaults, readOnlyFolderAround);
  const std::optional<NewBundle> newBundle = Linux::newBundle(defaults, bundles);
  std::optional<LastRun> lastRun;
  foundation::NotificationCenter center;
  RunLoop runLoop;
  InterruptibleCall call{requests};
  RunReport* report = nullptr;
  TerminalApplication application{runLoop, center, report};
  OwnNotifications notifications{[this](std::function<void()> action) { runLoop.deliver(std::move(action)); }};
  CheckedFiles fileManager{newBundle};
  std::optional<TemporaryFolderClaim> temporaryFolder;
  bool toolHasRun = false;
  AuthorizationServices authorizationServices{call, log};
  Workspace applications{bundles, log, call, installedBundle(defaults)};
  ToldWorkspace toldWorkspace{applications, hooks};
  ServiceManagement serviceManagement{log};
  Shell shell{call};
  LoggingHost loggingHost;
  std::optional<Failure> nothing;
  CheckedBundles checkedBundles{bundles, nothing, platform.report};
  ReportedWorkspace workspace{toldWorkspace, bundles, newBundle, platform.report};
  std::optional<TextAgent> agent;
  Platform platform{{defaults, center, checkedBundles, fileManager, log, &loggingHost.host},
                    application,
                    runLoop,
                    notifications,
                    authorizationServices,
                    workspace,
                    serviceManagement,
                    shell};
  Installation installation{platform};
};

TerminalPlatform::TerminalPlatform(const std::vector<std::string>& arguments, Hooks hooks)
    : _parts(std::make_unique<Parts>(arguments, std::move(hooks))) {
  _parts->report = &_parts->platform.report;
}

TerminalPlatform::~TerminalPlatform() {
  if (_parts->lastRun) _parts->lastRun->write(_parts->platform.report.failure());
}

Platform& TerminalPlatform::platform() const { return _parts->platform; }

const std::optional<Failure>& TerminalPlatform::refusal() const { return _parts->refusal; }

bool TerminalPlatform::runsForThisUser(std::string_view bundleIdentifier) const {
  const auto copies = copiesOf({std::string(bundleIdentifier), installedBundle(_parts->defaults)}, _parts->bundles);
  return std::ranges::any_of(copies, [](const auto& copy) { return ownerOf(copy.number) == ::getuid(); });
}

bool TerminalPlatform::waitForEndOf(int process) {
  const auto awaited = processWithNumber(process);
  if (!awaited.handle) return true;
  pollfd events[] = {{awaited.handle.get(), POLLIN, 0}, {_parts->requests.descriptor(), POLLIN, 0}};
  while (::poll(events, 2, -1) <= 0) continue;
  if (events[0].revents != 0) return true;
  _parts->platform.report.cancel(_parts->requests.next());
  return false;
}

void TerminalPlatform::setRelaunches(bool relaunches) { _parts->toldWorkspace.relaunches = relaunches; }

void TerminalPlatform::prepareToAsk() { _parts->agent.emplace(); }

void TerminalPlatform::run() {
  constexpr std::chrono::milliseconds longestSleep = std::chrono::hours(24);
  while (const auto due = _parts->runLoop.nextDue()) {
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*due - RunLoop::Clock::now());
    pollfd signals{_parts->requests.descriptor(), POLLIN, 0};
    ::poll(&signals, 1, static_cast<int>(std::clamp(remaining, std::chrono::milliseconds(0), longestSleep).count()));
    if (const auto signal = _parts->requests.next(); !signal.empty()) {
      _parts->platform.report.cancel(signal);
      _parts->application.terminate(nullptr);
    }
    _parts->runLoop.fireWhatIsDue();
  }
}

}  // namespace platform::Linux
