#include "platform/linux/Bus.h"

#include <cstring>

namespace platform::Linux {

std::optional<Bus> Bus::open(int (*opener)(sd_bus**), std::string* cause) {
  sd_bus* bus = nullptr;
  const int status = opener(&bus);
  if (status >= 0) return Bus(bus);
  if (cause != nullptr) *cause = std::strerror(-status);
  return std::nullopt;
}

}  // namespace platform::Linux
