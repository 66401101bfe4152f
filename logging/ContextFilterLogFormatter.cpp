#include "logging/ContextFilterLogFormatter.h"

#include <mutex>

void LoggingContextSet::addToSet(std::int32_t context) {
  const std::lock_guard guard(lock);
  set.insert(context);
}

void LoggingContextSet::removeFromSet(std::int32_t context) {
  const std::lock_guard guard(lock);
  set.erase(context);
}

std::vector<std::int32_t> LoggingContextSet::currentSet() {
  const std::lock_guard guard(lock);
  return {set.begin(), set.end()};
}

bool LoggingContextSet::isInSet(std::int32_t context) {
  const std::lock_guard guard(lock);
  return set.contains(context);
}

std::optional<std::string_view> ContextWhitelistFilterLogFormatter::formatLogMessage(const DDLogMessage& message,
                                                                                     std::string& /*buffer*/) {
  if (!isOnWhitelist(message.logContext())) return std::nullopt;
  return message.logMsg();
}

std::optional<std::string_view> ContextBlacklistFilterLogFormatter::formatLogMessage(const DDLogMessage& message,
                                                                                     std::string& /*buffer*/) {
  if (isOnBlacklist(message.logContext())) return std::nullopt;
  return message.logMsg();
}
