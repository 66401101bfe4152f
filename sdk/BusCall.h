#pragma once
// A method call on a message bus whose answer comes later, from the event loop that the connection is attached to. One
// thread.
#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace sdk {

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
// A connection that is closed, without waiting, when its owner goes. Calls without an answer are then forgotten.
using Bus = std::unique_ptr<sd_bus, CloseBus>;

// The connection that `open` makes, attached to the loop; null when there is no such bus.
Bus openBus(int (*open)(sd_bus**), sd_event* loop);

struct Method {
  const char* destination;
  const char* path;
  const char* interface;
  const char* name;
};

inline constexpr Method busMethod(const char* name) {
  return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", name};
}

inline constexpr std::uint64_t second = 1'000'000;  // microseconds, the unit of sd-bus

// Writes the arguments; negative when that fails.
using Write = std::function<int(sd_bus_message* request)>;
// Gets the answer, which is an error message when the call failed.
using Answered = std::function<void(sd_bus_message* reply)>;

// False when the call cannot be sent; `answered` is then not called.
bool callLater(sd_bus* bus, const Method& method, std::uint64_t patience, const Write& write, Answered answered);

bool hasFailed(sd_bus_message* reply);
// The error's text; its name where it has no text.
std::string causeOf(sd_bus_message* reply);

}  // namespace sdk
