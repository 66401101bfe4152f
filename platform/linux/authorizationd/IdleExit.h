#pragma once
// Ends the broker's event loop after a time without use, and at the first moment without use once its program was replaced
// or removed. The bus starts the broker again when it is needed.
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "platform/linux/authorizationd/Service.h"

namespace platform::Linux::authorizationd {

class IdleExit {
 public:
  // All outlive this object. Takes over `service.onActivity`.
  IdleExit(sd_bus* bus, sd_event* loop, Service& service, Time idle);
  ~IdleExit();
  IdleExit(const IdleExit&) = delete;
  IdleExit& operator=(const IdleExit&) = delete;

  // A negative error number on failure.
  int start();

 private:
  static int timeIsUp(sd_event_source* source, std::uint64_t time, void* self);
  static int programChanged(sd_event_source* source, const inotify_event* event, void* self);
  int used();
  int waitFor(Time time);
  int leave();

  sd_bus* _bus;
  sd_event* _loop;
  Service& _service;
  Time _idle;
  sd_event_source* _timer = nullptr;
  sd_event_source* _watch = nullptr;
  bool _isOutdated = false;
};

}  // namespace platform::Linux::authorizationd
