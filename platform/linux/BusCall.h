#pragma once
// Owned pieces of bus calls, and the questions about names that the bus itself answers. One thread at a time.
#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <memory>
#include <optional>
#include <string>

namespace platform::Linux {

struct UnreferenceMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, UnreferenceMessage>;

// The error of one call, freed with it.
class BusError {
 public:
  BusError() = default;
  ~BusError() { sd_bus_error_free(&_error); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  [[nodiscard]] sd_bus_error* get() { return &_error; }
  [[nodiscard]] bool has(const char* name) const { return sd_bus_error_has_name(&_error, name) != 0; }
  // In words; `status` is the call's own answer, a negative error number.
  [[nodiscard]] std::string cause(int status) const;

 private:
  sd_bus_error _error{};
};

// The unique name of the connection that owns `name`; nothing when nobody does. Starts no program.
std::optional<std::string> ownerOfName(sd_bus* bus, const std::string& name);
// The process at the other end of the connection with this unique name.
std::optional<pid_t> processOfConnection(sd_bus* bus, const std::string& uniqueName);

}  // namespace platform::Linux
