#include "platform/linux/PoliteQuit.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>

#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "platform/linux/CloseWindows.h"
#include "platform/linux/DisplayConnection.h"
#include "platform/linux/ProcessFacts.h"

namespace platform::Linux {

namespace {

constexpr std::uint64_t daemonPatience = 3'000'000;  // microseconds, for the bus's own answers
constexpr std::uint64_t answerPatience = 1'000'000;  // for the application's, which may be asking its user first

// The path at which an application with this identifier offers its actions.
std::string objectPathOf(std::string identifier) {
  std::replace(identifier.begin(), identifier.end(), '.', '/');
  std::replace(identifier.begin(), identifier.end(), '-', '_');
  return "/" + identifier;
}

BusMessage quitMessage(sd_bus* bus, const std::string& receiver, const std::string& object, const char* interface,
                       const char* member) {
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus, &message, receiver.c_str(), object.c_str(), interface, member) < 0) return {};
  BusMessage owned(message);
  return sd_bus_message_append(message, "s", "quit") >= 0 ? std::move(owned) : BusMessage();
}

// An application that lists its actions answers an unknown one with success, and does nothing. One that keeps no such list,
// or is too busy to answer, is taken to know the action.
bool knowsQuit(sd_bus* bus, const std::string& receiver, const std::string& object) {
  const BusMessage question = quitMessage(bus, receiver, object, "org.gtk.Actions", "Describe");
  if (!question) return false;
  BusError error;
  sd_bus_message* answer = nullptr;
  if (sd_bus_call(bus, question.get(), answerPatience, error.get(), &answer) < 0)
    return !error.has(SD_BUS_ERROR_INVALID_ARGS);
  const BusMessage description(answer);
  int isEnabled = 0;
  return sd_bus_message_enter_container(answer, 'r', "bgav") > 0 &&
         sd_bus_message_read_basic(answer, 'b', &isEnabled) > 0 && isEnabled != 0;
}

// True when the action was asked for. An application that has no such action answers so at once; silence is taken as
// thinking it over.
bool activateQuit(sd_bus* bus, const std::string& receiver, const std::string& identifier) {
  const std::string object = objectPathOf(identifier);
  if (!knowsQuit(bus, receiver, object)) return false;
  const BusMessage message = quitMessage(bus, receiver, object, "org.freedesktop.Application", "ActivateAction");
  if (!message || sd_bus_message_append(message.get(), "ava{sv}", 0, 0) < 0) return false;
  BusError error;
  const int status = sd_bus_call(bus, message.get(), answerPatience, error.get(), nullptr);
  return status >= 0 || !(error.has(SD_BUS_ERROR_UNKNOWN_METHOD) || error.has(SD_BUS_ERROR_UNKNOWN_OBJECT) ||
                          error.has(SD_BUS_ERROR_UNKNOWN_INTERFACE));
}

bool quitOverBus(const RunningProcess& process, const std::string& identifier) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return false;
  const auto bus = Bus::openUser();
  if (!bus) return false;
  sd_bus_set_method_call_timeout(bus->get(), daemonPatience);
  const auto owner = ownerOfName(bus->get(), identifier);
  if (!owner || processOfConnection(bus->get(), *owner) != process.number) return false;
  // The number was this process's when the bus gave it only if it still is.
  if (!isRunning(process)) return false;
  return activateQuit(bus->get(), *owner, identifier);
}

// A toolkit's handler for the signal closes the windows without asking, and unsaved work is gone. A process without a
// handler would be ended on the spot.
bool terminateWindowless(const RunningProcess& process, const std::vector<pid_t>& copies) {
  if (std::ranges::find(copies, parentOf(process.number)) != copies.end()) return false;
  if (!handlesSignal(process.number, SIGTERM) || mayShowWindows(process.number) || !isRunning(process)) return false;
  return ::syscall(SYS_pidfd_send_signal, process.handle.get(), SIGTERM, nullptr, 0) == 0;
}

}  // namespace

bool askToQuit(const RunningProcess& process, const std::string& bundleIdentifier, const std::vector<pid_t>& copies) {
  if (!isRunning(process)) return false;
  bringForward(process.number);
  return quitOverBus(process, bundleIdentifier) || closeWindows(process.number) || terminateWindowless(process, copies);
}

}  // namespace platform::Linux
