#include "platform/linux/BrokerBounds.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "protocol/Broker.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;

constexpr const char* brokerUnit = "kelto-authorizationd.service";
constexpr const char* serviceManager = "org.freedesktop.systemd1";
constexpr const char* serviceInterface = "org.freedesktop.systemd1.Service";
constexpr std::uint64_t patienceForManager = 1'000'000;  // microseconds

// The bus object of the broker's unit. A unit of that name that brings no broker to the system bus says nothing about it.
std::optional<std::string> objectOfBrokerUnit(sd_bus* bus) {
  sd_bus_message* request = nullptr;
  sd_bus_message_new_method_call(bus, &request, serviceManager, "/org/freedesktop/systemd1",
                                 "org.freedesktop.systemd1.Manager", "LoadUnit");
  const BusMessage ownedRequest(request);
  if (request == nullptr || sd_bus_message_append(request, "s", brokerUnit) < 0) return std::nullopt;
  // Without a service manager the bus would try in vain to start one.
  sd_bus_message_set_auto_start(request, 0);
  BusError error;
  sd_bus_message* answer = nullptr;
  sd_bus_call(bus, request, 0, error.get(), &answer);
  const BusMessage owned(answer);
  const char* path = nullptr;
  if (answer == nullptr || sd_bus_message_read_basic(answer, 'o', &path) <= 0) return std::nullopt;
  char* name = nullptr;
  BusError unnamed;
  if (sd_bus_get_property_string(bus, serviceManager, path, serviceInterface, "BusName", unnamed.get(), &name) < 0)
    return std::nullopt;
  const bool isBrokers = std::string_view(name) == protocol::brokerBusName;
  std::free(name);
  return isBrokers ? std::optional<std::string>(path) : std::nullopt;
}

// Marks before a path say that it may be missing, or is below the service's root.
fs::path folderOfEntry(std::string_view entry) {
  std::error_code error;
  return fs::weakly_canonical(entry.substr(std::min(entry.find('/'), entry.size())), error);
}

std::vector<std::string> foldersIn(sd_bus* bus, const std::string& unit, const char* property) {
  BusError error;
  sd_bus_message* answer = nullptr;
  sd_bus_get_property(bus, serviceManager, unit.c_str(), serviceInterface, property, error.get(), &answer, "as");
  const BusMessage owned(answer);
  std::vector<std::string> folders;
  if (answer == nullptr || sd_bus_message_enter_container(answer, 'a', "s") < 0) return folders;
  for (const char* entry = nullptr; sd_bus_message_read_basic(answer, 's', &entry) > 0;)
    folders.push_back(folderOfEntry(entry));
  return folders;
}

// Empty if none of them is around the path.
std::string deepestAround(const fs::path& path, const std::vector<std::string>& folders) {
  std::string deepest;
  for (const auto& folder : folders) {
    const bool isAround = !folder.empty() && (path.string() + "/").starts_with(folder == "/" ? folder : folder + "/");
    if (isAround && folder.size() > deepest.size()) deepest = folder;
  }
  return deepest;
}

}  // namespace

std::string readOnlyFolderAround(const fs::path& path) {
  const auto bus = Bus::openSystem();
  if (!bus) return {};
  sd_bus_set_method_call_timeout(bus->get(), patienceForManager);
  const auto unit = objectOfBrokerUnit(bus->get());
  if (!unit) return {};
  auto folder = deepestAround(path, foldersIn(bus->get(), *unit, "ReadOnlyPaths"));
  const auto writable = deepestAround(path, foldersIn(bus->get(), *unit, "ReadWritePaths"));
  return writable.size() > folder.size() ? std::string() : folder;
}

}  // namespace platform::Linux
