#pragma once
// The levels of a calling site by their names, for settings that people write.
#include <cstdint>
#include <optional>
#include <string_view>

#include "logging/DDLogMessage.h"

// "off", "error", "warning" and "info": the sum of the flags of this kind and what is graver. nullopt for another name.
constexpr std::optional<std::int32_t> logLevelNamed(std::string_view name) {
  if (name == "off") return 0;
  if (name == "error") return DDLogFlagError;
  if (name == "warning") return DDLogFlagError | DDLogFlagWarning;
  if (name == "info") return DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo;
  return std::nullopt;
}
