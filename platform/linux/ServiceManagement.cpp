#include "platform/linux/ServiceManagement.h"

#include <cstdlib>

#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"

namespace platform::Linux {

namespace {

constexpr const char* manager = "org.freedesktop.systemd1";
constexpr std::uint64_t managerPatience = 3'000'000;  // microseconds

struct Unit {
  bool isLoaded = false;
  std::uint32_t mainProcess = 0;
};

// The bus object of the unit; nothing, and no error, when the manager knows no such unit.
std::optional<std::string> objectOfUnit(sd_bus* bus, const std::string& unit, int& status, BusError& error) {
  sd_bus_message* answer = nullptr;
  status = sd_bus_call_method(bus, manager, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", "GetUnit",
                              error.get(), &answer, "s", unit.c_str());
  const BusMessage owned(answer);
  if (status < 0 && error.has("org.freedesktop.systemd1.NoSuchUnit")) status = 0;
  const char* path = nullptr;
  if (answer == nullptr || sd_bus_message_read_basic(answer, 'o', &path) <= 0) return std::nullopt;
  return path;
}

int readUnit(sd_bus* bus, const std::string& object, Unit& unit, BusError& error) {
  char* loadState = nullptr;
  const int status = sd_bus_get_property_string(bus, manager, object.c_str(), "org.freedesktop.systemd1.Unit", "LoadState",
                                                error.get(), &loadState);
  if (status < 0) return status;
  unit.isLoaded = std::string_view(loadState) == "loaded";
  std::free(loadState);
  if (!unit.isLoaded) return 0;
  return sd_bus_get_property_trivial(bus, manager, object.c_str(), "org.freedesktop.systemd1.Service", "MainPID",
                                     error.get(), 'u', &unit.mainProcess);
}

}  // namespace

std::optional<foundation::PropertyList::Dictionary> ServiceManagement::copyJobDictionary(const std::string& label) const {
  const std::string name = label + ".service";
  const auto fail = [&](const std::string& cause) {
    _log.log("The service manager could not be asked about " + name + ": " + cause);
    return std::nullopt;
  };
  std::string cause;
  const auto bus = Bus::openSystem(&cause);
  if (!bus) return fail(cause);
  sd_bus_set_method_call_timeout(bus->get(), managerPatience);

  BusError error;
  int status = 0;
  Unit unit;
  const auto object = objectOfUnit(bus->get(), name, status, error);
  if (object) status = readUnit(bus->get(), *object, unit, error);
  if (status < 0) return fail(error.cause(status));
  if (!unit.isLoaded) return std::nullopt;

  foundation::PropertyList::Dictionary job{{"Label", label}};
  if (unit.mainProcess != 0) job.insert_or_assign("PID", std::int64_t{unit.mainProcess});
  return job;
}

}  // namespace platform::Linux
