#include "platform/linux/authorizationd/IdleExit.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <ctime>

#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {
namespace {

constexpr const char* ownProgram = "/proc/self/exe";

// Whether no folder has the program of this process any more.
bool isProgramGone() {
  struct stat program {};
  return ::stat(ownProgram, &program) == 0 && program.st_nlink == 0;
}

}  // namespace

IdleExit::IdleExit(sd_bus* bus, sd_event* loop, Service& service, Time idle)
    : _bus(bus), _loop(loop), _service(service), _idle(idle) {
  _service.onActivity = [this] { used(); };
}

IdleExit::~IdleExit() {
  _service.onActivity = [] {};
  sd_event_source_disable_unref(_timer);
  sd_event_source_disable_unref(_watch);
}

int IdleExit::start() {
  // Without the watch a replaced program still leaves after the time without use.
  sd_event_add_inotify(_loop, &_watch, ownProgram, IN_ATTRIB, programChanged, this);
  constexpr std::uint64_t accuracy = 0;  // the default of the event loop, a quarter of a second
  return sd_event_add_time_relative(_loop, &_timer, CLOCK_MONOTONIC, static_cast<std::uint64_t>(_idle.count()), accuracy,
                                    timeIsUp, this);
}

// When the timer is due, it is known whether the call that was just made has left anything behind.
int IdleExit::used() { return waitFor(_isOutdated ? Time::zero() : _idle); }

int IdleExit::waitFor(Time time) {
  if (_timer == nullptr) return 0;
  const int status = sd_event_source_set_time_relative(_timer, static_cast<std::uint64_t>(time.count()));
  return status < 0 ? status : sd_event_source_set_enabled(_timer, SD_EVENT_ONESHOT);
}

int IdleExit::timeIsUp(sd_event_source* /*source*/, std::uint64_t /*time*/, void* self) {
  auto* idle = static_cast<IdleExit*>(self);
  return idle->_service.busy() ? idle->waitFor(idle->_idle) : idle->leave();
}

// The program loses its last name when another takes its place: the next job is the new one's.
int IdleExit::programChanged(sd_event_source* /*source*/, const inotify_event* /*event*/, void* self) {
  auto* idle = static_cast<IdleExit*>(self);
  idle->_isOutdated = isProgramGone();
  return idle->_isOutdated ? idle->used() : 0;
}

// A call that came in before the name was given up is answered; if somebody needs the broker now, the name is taken back.
// Later calls wait at the bus for the next broker.
int IdleExit::leave() {
  if (const int status = sd_bus_release_name(_bus, protocol::brokerBusName); status < 0) return status;
  int processed = 0;
  do {
    processed = sd_bus_process(_bus, nullptr);
  } while (processed > 0);
  if (processed < 0 || !_service.busy()) return sd_event_exit(_loop, 0);
  if (const int status = sd_bus_request_name(_bus, protocol::brokerBusName, 0); status < 0) return status;
  return waitFor(_idle);
}

}  // namespace platform::Linux::authorizationd
