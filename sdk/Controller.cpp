#include "sdk/Controller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <locale>
#include <sstream>
#include <utility>

#include "protocol/LaunchArguments.h"

namespace sdk {
namespace {

constexpr std::uint64_t patienceForInstaller = 10 * second;

std::string argument(const char* name) { return std::string("-") + name; }

// "r: {{x, y}, {w, h}}"
std::string textOf(const Frame& frame) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "r: {{" << frame.x << ", " << frame.y << "}, {" << frame.width << ", " << frame.height << "}}";
  return text.str();
}

}  // namespace

std::unique_ptr<Controller> Controller::make(const char* identifier, kelto_handler handler, void* data) {
  sd_event* opened = nullptr;
  if (sd_event_new(&opened) < 0) return nullptr;
  Loop loop(opened);
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const auto onWakeUp = [](sd_event_source* /*source*/, int wakeUp, std::uint32_t /*events*/, void* /*data*/) {
    eventfd_t count = 0;
    static_cast<void>(::eventfd_read(wakeUp, &count));
    return 0;
  };
  sd_event_source* source = nullptr;
  if (descriptor < 0 || sd_event_add_io(opened, &source, descriptor, EPOLLIN, onWakeUp, nullptr) < 0) {
    if (descriptor >= 0) ::close(descriptor);
    return nullptr;
  }
  sd_event_source_set_io_fd_own(source, 1);
  std::unique_ptr<Controller> made(new Controller(std::move(loop), Source(source), handler, data));
  if (identifier != nullptr) made->offerQuit(identifier);
  made->turn();
  return made;
}

Controller::Controller(Loop loop, Source wakeUp, kelto_handler handler, void* data)
    : _loop(std::move(loop)),
      _wakeUp(std::move(wakeUp)),
      _handler(handler),
      _data(data),
      _session(_loop.get()),
      _sessionBus(_loop.get(), [this] { enter(KELTO_QUIT_REQUESTED, 0, "asked to quit"); }) {}

Controller::~Controller() = default;

void Controller::offerQuit(const char* identifier) {
  _sessionBus.offerQuit(identifier,
                        [this](int error, const std::string& cause) { enter(KELTO_NAME_NOT_OWNED, error, cause); });
}

// Runs the loop for as long as that needs no waiting, and leaves it prepared: only then its descriptor tells the truth.
void Controller::turn() {
  while (true) {
    const bool isArmed = sd_event_get_state(_loop.get()) == SD_EVENT_ARMED;
    const int pending = isArmed ? sd_event_wait(_loop.get(), 0) : sd_event_prepare(_loop.get());
    if (pending < 0) return;
    if (pending > 0) {
      sd_event_dispatch(_loop.get());
    } else if (!isArmed) {
      return;
    }
  }
}

void Controller::enter(int kind, int number, std::string text) {
  _events.push_back({kind, number, std::move(text)});
  static_cast<void>(::eventfd_write(sd_event_source_get_io_fd(_wakeUp.get()), 1));
}

void Controller::dispatch() {
  ++_dispatches;
  turn();
  while (!_events.empty() && !_isFreed) {
    const Event event = std::move(_events.front());
    _events.pop_front();
    _handler(_data, event.kind, event.number, event.text.c_str());
  }
  --_dispatches;
}

int Controller::obtainRight() {
  if (_job || _isAsking) return -EBUSY;
  askForRight();
  turn();
  return 0;
}

int Controller::run(Job job) {
  if (_job || _isAsking) return -EBUSY;
  if (!job.installedBundle.starts_with('/') || (job.newBundle && !job.newBundle->starts_with('/'))) return -EINVAL;
  _job = std::move(job);
  _hasHandedOver = false;
  if (!_sessionBus.isOpen()) {
    fail({KELTO_ERROR_NO_SESSION_BUS, "the session bus cannot be reached"});
  } else if (_session.hasRight()) {
    startInstaller();
  } else {
    askForRight();
  }
  turn();
  return 0;
}

void Controller::askForRight() {
  _isAsking = true;
  _session.obtainRight([this](const std::optional<Failure>& failure) {
    _isAsking = false;
    if (failure) return fail(*failure);
    enter(KELTO_RIGHT_GRANTED, 0, "the right was granted");
    if (_job) startInstaller();
  });
}

std::vector<std::string> Controller::arguments() const {
  std::vector<std::string> words;
  if (_job->newBundle) words.insert(words.end(), {argument(protocol::sourcePathArgument), *_job->newBundle});
  words.insert(words.end(), {argument(protocol::trashPathArgument), _job->installedBundle});
  if (_job->isUpdate) words.insert(words.end(), {argument(protocol::isUpdateArgument), "YES"});
  if (_frame) words.insert(words.end(), {argument(protocol::mainFrameArgument), textOf(*_frame)});
  return words;
}

void Controller::startInstaller() {
  std::string cause;
  const auto bundle = readInstallerBundle(_installerPath, cause);
  if (!bundle) return fail({KELTO_ERROR_INSTALLER, cause});
  _bundle = *bundle;
  const auto ended = [this](int status) { installerEnded(status); };
  if (!_installer.start(_loop.get(), {_bundle.program, arguments(), _parentWindow}, ended, cause))
    return fail({KELTO_ERROR_INSTALLER, cause});
  enter(KELTO_INSTALLER_STARTED, _installer.number(), "the installer was started");
  waitForInstaller();
}

void Controller::waitForInstaller() {
  _sessionBus.whenOwned(_bundle.identifier, _installer.number(), [this](const std::string& connection) {
    _patience.reset();
    handOver(connection);
  });
  const auto onTime = [](sd_event_source* /*source*/, std::uint64_t /*time*/, void* data) {
    auto& self = *static_cast<Controller*>(data);
    self._patience.reset();
    self.fail({KELTO_ERROR_SILENT, "the installer did not take the bus name " + self._bundle.identifier + " within 10 s"});
    return 0;
  };
  sd_event_source* source = nullptr;
  sd_event_add_time_relative(_loop.get(), &source, CLOCK_MONOTONIC, patienceForInstaller, 0, onTime, this);
  _patience.reset(source);
}

void Controller::handOver(const std::string& connection) {
  _session.makeForm(_installer.pidfd(), [this, connection](const std::optional<Failure>& failure, const Form& form) {
    if (failure) return fail(*failure);
    _sessionBus.sendForm(form, connection, [this](const std::optional<Failure>& unsent) {
      if (unsent) return fail(*unsent);
      _hasHandedOver = true;
      enter(KELTO_RIGHTS_HANDED_OVER, 0, "the rights were handed over");
    });
  });
}

void Controller::installerEnded(int status) {
  if (!_job) return;
  if (!_hasHandedOver)
    return fail(
        {KELTO_ERROR_SILENT, "the installer ended before it had the rights, with status " + std::to_string(status)});
  _job.reset();
  _session.end();
  enter(KELTO_INSTALLER_ENDED, status, status == 0 ? "the job is done" : "the job was not done");
}

// Gives the rights back: the next job asks anew.
void Controller::fail(const Failure& failure) {
  _job.reset();
  _patience.reset();
  _sessionBus.stopWaiting();
  _session.end();
  enter(KELTO_FAILED, failure.error, failure.cause);
}

}  // namespace sdk
