#include "platform/linux/authorizationd/IdleExit.h"

#include <ctime>

#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {

IdleExit::IdleExit(sd_bus* bus, sd_event* loop, Service& service, Time idle)
    : _bus(bus), _loop(loop), _service(service), _idle(idle) {
  _service.onActivity = [this] { restart(); };
}

IdleExit::~IdleExit() {
  _service.onActivity = [] {};
  sd_event_source_disable_unref(_timer);
}

int IdleExit::start() {
  constexpr std::uint64_t accuracy = 0;  // the default of the event loop, a quarter of a second
  return sd_event_add_time_relative(_loop, &_timer, CLOCK_MONOTONIC, static_cast<std::uint64_t>(_idle.count()), accuracy,
                                    timeIsUp, this);
}

int IdleExit::restart() {
  if (_timer == nullptr) return 0;
  const int status = sd_event_source_set_time_relative(_timer, static_cast<std::uint64_t>(_idle.count()));
  return status < 0 ? status : sd_event_source_set_enabled(_timer, SD_EVENT_ONESHOT);
}

int IdleExit::timeIsUp(sd_event_source* /*source*/, std::uint64_t /*time*/, void* self) {
  auto* idle = static_cast<IdleExit*>(self);
  return idle->_service.busy() ? idle->restart() : idle->leave();
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
  return restart();
}

}  // namespace platform::Linux::authorizationd
