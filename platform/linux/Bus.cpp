#include "platform/linux/Bus.h"

#include <cerrno>
#include <chrono>
#include <cstring>

namespace platform::Linux {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{5};

// Waits until the bus has greeted the new connection. Positive when it has, otherwise a negative error number.
int waitUntilReady(sd_bus* bus) {
  const auto deadline = Clock::now() + patience;
  for (;;) {
    if (const int ready = sd_bus_is_ready(bus); ready != 0) return ready;
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) return progress;
    if (progress > 0) continue;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    if (left <= 0) return -ETIMEDOUT;
    const int waited = sd_bus_wait(bus, static_cast<std::uint64_t>(left));
    if (waited < 0 && waited != -EINTR) return waited;
  }
}

}  // namespace

std::optional<Bus> Bus::open(int (*opener)(sd_bus**), std::string* cause) {
  sd_bus* bus = nullptr;
  int status = opener(&bus);
  if (status >= 0) status = waitUntilReady(bus);
  if (status >= 0) return Bus(bus);
  sd_bus_close_unref(bus);  // without flushing, which would wait for the greeting again
  if (cause != nullptr) *cause = std::strerror(-status);
  return std::nullopt;
}

std::optional<Bus> Bus::startUser() {
  sd_bus* bus = nullptr;
  return sd_bus_open_user(&bus) < 0 ? std::nullopt : std::optional(Bus(bus));
}

}  // namespace platform::Linux
