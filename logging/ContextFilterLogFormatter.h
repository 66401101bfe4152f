#pragma once
// Filters that pass or drop records by their context number, and add nothing to the message. Any thread: what is on a list
// counts from the next record on.
#include <set>
#include <vector>

#include "foundation/Api.h"
#include "logging/DDLogger.h"
#include "logging/SpinLock.h"

class KELTO_API LoggingContextSet {
 public:
  void addToSet(std::int32_t context);
  void removeFromSet(std::int32_t context);
  // The members now.
  [[nodiscard]] std::vector<std::int32_t> currentSet();
  [[nodiscard]] bool isInSet(std::int32_t context);

 private:
  SpinLock lock;
  std::set<std::int32_t> set;
};

// Passes the records whose context is on the list.
class KELTO_API ContextWhitelistFilterLogFormatter : public DDLogFormatter {
 public:
  void addToWhitelist(std::int32_t context) { contextSet.addToSet(context); }
  void removeFromWhitelist(std::int32_t context) { contextSet.removeFromSet(context); }
  [[nodiscard]] std::vector<std::int32_t> whitelist() { return contextSet.currentSet(); }
  [[nodiscard]] bool isOnWhitelist(std::int32_t context) { return contextSet.isInSet(context); }

  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override;

 private:
  LoggingContextSet contextSet;
};

// Drops the records whose context is on the list.
class KELTO_API ContextBlacklistFilterLogFormatter : public DDLogFormatter {
 public:
  void addToBlacklist(std::int32_t context) { contextSet.addToSet(context); }
  void removeFromBlacklist(std::int32_t context) { contextSet.removeFromSet(context); }
  [[nodiscard]] std::vector<std::int32_t> blacklist() { return contextSet.currentSet(); }
  [[nodiscard]] bool isOnBlacklist(std::int32_t context) { return contextSet.isInSet(context); }

  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override;

 private:
  LoggingContextSet contextSet;
};
