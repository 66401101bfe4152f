#pragma once
// A connection to a message bus, owned. One thread at a time; the thread may change between calls.
#include <systemd/sd-bus.h>

#include <optional>
#include <string>
#include <utility>

namespace platform::Linux {

class Bus {
 public:
  // A connection of its own to the user's session bus or the system bus, ready for calls. Nothing when the bus cannot be
  // reached or does not answer within 5 s; `cause`, when given, then says why.
  static std::optional<Bus> openUser(std::string* cause = nullptr) { return open(sd_bus_open_user, cause); }
  static std::optional<Bus> openSystem(std::string* cause = nullptr) { return open(sd_bus_open_system, cause); }

  // The same for the session bus without waiting: calls may be queued, and travel with the first turns of sd_bus_process.
  static std::optional<Bus> startUser();

  Bus(Bus&& other) noexcept : _bus(std::exchange(other._bus, nullptr)) {}
  Bus& operator=(Bus&& other) noexcept {
    std::swap(_bus, other._bus);
    return *this;
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  // Sends what is queued, if the bus has greeted this connection.
  ~Bus() { sd_bus_is_ready(_bus) > 0 ? sd_bus_flush_close_unref(_bus) : sd_bus_close_unref(_bus); }

  [[nodiscard]] sd_bus* get() const { return _bus; }

 private:
  explicit Bus(sd_bus* bus) : _bus(bus) {}
  static std::optional<Bus> open(int (*opener)(sd_bus**), std::string* cause);

  sd_bus* _bus;
};

}  // namespace platform::Linux
