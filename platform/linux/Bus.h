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

  Bus(Bus&& other) noexcept : _bus(std::exchange(other._bus, nullptr)) {}
  Bus& operator=(Bus&& other) noexcept {
    std::swap(_bus, other._bus);
    return *this;
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  ~Bus() { sd_bus_flush_close_unref(_bus); }

  [[nodiscard]] sd_bus* get() const { return _bus; }

 private:
  explicit Bus(sd_bus* bus) : _bus(bus) {}
  static std::optional<Bus> open(int (*opener)(sd_bus**), std::string* cause);

  sd_bus* _bus;
};

}  // namespace platform::Linux
