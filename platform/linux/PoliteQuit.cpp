#include "platform/linux/PoliteQuit.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <fstream>

#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "platform/linux/CloseWindows.h"

namespace platform::Linux {

namespace {

constexpr std::uint64_t callPatience = 3'000'000;    // microseconds, for the bus's own answers
constexpr std::uint64_t answerPatience = 1'000'000;  // for the application's, which may be asking its user first

// The path at which an application with this identifier offers its actions.
std::string objectPathOf(std::string identifier) {
  std::replace(identifier.begin(), identifier.end(), '.', '/');
  std::replace(identifier.begin(), identifier.end(), '-', '_');
  return "/" + identifier;
}

BusMessage quitMessage(sd_bus* bus, const std::string& receiver, const std::string& identifier) {
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus, &message, receiver.c_str(), objectPathOf(identifier).c_str(),
                                     "org.freedesktop.Application", "ActivateAction") < 0)
    return {};
  BusMessage owned(message);
  return sd_bus_message_append(message, "sava{sv}", "quit", 0, 0) >= 0 ? std::move(owned) : BusMessage();
}

// True when the action was asked for. An application that has no such action answers so at once; silence is taken as
// thinking it over.
bool activateQuit(sd_bus* bus, const std::string& receiver, const std::string& identifier) {
  const BusMessage message = quitMessage(bus, receiver, identifier);
  if (!message) return false;
  BusError error;
  const int status = sd_bus_call(bus, message.get(), answerPatience, error.get(), nullptr);
  return status >= 0 || !(error.has(SD_BUS_ERROR_UNKNOWN_METHOD) || error.has(SD_BUS_ERROR_UNKNOWN_OBJECT) ||
                          error.has(SD_BUS_ERROR_UNKNOWN_INTERFACE));
}

bool quitOverBus(const RunningProcess& process, const std::string& identifier) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return false;
  const auto bus = Bus::openUser();
  if (!bus) return false;
  sd_bus_set_method_call_timeout(bus->get(), callPatience);
  const auto owner = ownerOfName(bus->get(), identifier);
  if (!owner || processOfConnection(bus->get(), *owner) != process.number) return false;
  // The number was this process's when the bus gave it only if it still is.
  if (!isRunning(process)) return false;
  return activateQuit(bus->get(), *owner, identifier);
}

// True when the process has a handler of its own for SIGTERM, which would end it on the spot otherwise.
bool handlesTermination(pid_t process) {
  constexpr std::string_view start = "SigCgt:\t";
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(start)) continue;
    std::uint64_t caught = 0;
    std::from_chars(line.data() + start.size(), line.data() + line.size(), caught, 16);
    return (caught >> (SIGTERM - 1) & 1U) != 0;
  }
  return false;
}

}  // namespace

bool askToQuit(const RunningProcess& process, const std::string& bundleIdentifier) {
  if (quitOverBus(process, bundleIdentifier)) return true;
  if (!isRunning(process)) return false;
  if (closeWindows(process.number)) return true;
  return handlesTermination(process.number) &&
         ::syscall(SYS_pidfd_send_signal, process.handle.get(), SIGTERM, nullptr, 0) == 0;
}

}  // namespace platform::Linux
