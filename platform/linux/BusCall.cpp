#include "platform/linux/BusCall.h"

#include <cstring>

namespace platform::Linux {

namespace {

BusMessage askBus(sd_bus* bus, const char* question, const std::string& name) {
  sd_bus_message* answer = nullptr;
  const int status = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                        question, nullptr, &answer, "s", name.c_str());
  return BusMessage(status < 0 ? nullptr : answer);
}

}  // namespace

std::string BusError::cause(int status) const {
  if (_error.message != nullptr) return _error.message;
  return _error.name != nullptr ? _error.name : std::strerror(-status);
}

std::optional<std::string> ownerOfName(sd_bus* bus, const std::string& name) {
  const BusMessage answer = askBus(bus, "GetNameOwner", name);
  const char* owner = nullptr;
  if (!answer || sd_bus_message_read_basic(answer.get(), 's', &owner) <= 0) return std::nullopt;
  return owner;
}

std::optional<pid_t> processOfConnection(sd_bus* bus, const std::string& uniqueName) {
  const BusMessage answer = askBus(bus, "GetConnectionUnixProcessID", uniqueName);
  std::uint32_t process = 0;
  if (!answer || sd_bus_message_read_basic(answer.get(), 'u', &process) <= 0) return std::nullopt;
  return static_cast<pid_t>(process);
}

}  // namespace platform::Linux
