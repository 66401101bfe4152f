#include "sdk/LastRun.h"

#include <fstream>
#include <sstream>

#include "foundation/plist/PropertyList.h"
#include "protocol/LastRun.h"

namespace sdk {

namespace PropertyList = foundation::PropertyList;

std::optional<std::string> lastRunValue(const std::string& key) {
  std::ostringstream bytes;
  bytes << std::ifstream(protocol::lastRunPath(), std::ios::binary).rdbuf();
  const auto record = PropertyList::parse(bytes.str());
  const auto* values = record ? record->as<PropertyList::Dictionary>() : nullptr;
  if (values == nullptr) return std::nullopt;
  const auto value = values->find(key);
  if (value == values->end()) return std::nullopt;
  if (const auto* text = value->second.as<std::string>()) return *text;
  if (const auto* number = value->second.as<std::int64_t>()) return std::to_string(*number);
  if (const auto* date = value->second.as<foundation::Date>()) return PropertyList::dateText(*date);
  return std::nullopt;
}

}  // namespace sdk
