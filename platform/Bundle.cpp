#include "platform/Bundle.h"

namespace platform {

std::optional<std::string> Bundle::infoString(std::string_view key) const {
  const auto& info = infoDictionary();
  const auto place = info.find(key);
  if (place == info.end()) return std::nullopt;
  const auto* text = place->second.as<std::string>();
  return text ? std::optional(*text) : std::nullopt;
}

}  // namespace platform
