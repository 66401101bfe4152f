#pragma once
// A calling site that logs through the core with a level of its own:
//
//   DDLogSite site{DDLogFlagError | DDLogFlagWarning};
//   site.error("%@ has %d parts", name, count);
//   site.error(LogFields{{"name", name}}, "%@ has %d parts", name, count);
//
// Errors are written when the call returns; warnings and information follow in order. Literal formats are checked while
// compiling. Any thread.
#include <atomic>

#include "logging/DDLog.h"

class DDLogSite {
 public:
  // `level` is the sum of the flags that are let through; everything else costs one comparison.
  constexpr explicit DDLogSite(std::int32_t level, std::int32_t context = 0) : _level(level), _context(context) {}

  [[nodiscard]] std::int32_t level() const { return _level.load(std::memory_order_relaxed); }
  void setLevel(std::int32_t level) { _level.store(level, std::memory_order_relaxed); }

  template <class... Arguments>
  void error(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) const {
    log(false, DDLogFlagError, nullptr, format, arguments...);
  }
  template <class... Arguments>
  void error(const LogFields& fields, std::type_identity_t<logging::FormatString<Arguments...>> format,
             const Arguments&... arguments) const {
    log(false, DDLogFlagError, &fields, format, arguments...);
  }
  template <class... Arguments>
  void warning(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) const {
    log(true, DDLogFlagWarning, nullptr, format, arguments...);
  }
  template <class... Arguments>
  void warning(const LogFields& fields, std::type_identity_t<logging::FormatString<Arguments...>> format,
               const Arguments&... arguments) const {
    log(true, DDLogFlagWarning, &fields, format, arguments...);
  }
  template <class... Arguments>
  void info(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) const {
    log(true, DDLogFlagInfo, nullptr, format, arguments...);
  }
  template <class... Arguments>
  void info(const LogFields& fields, std::type_identity_t<logging::FormatString<Arguments...>> format,
            const Arguments&... arguments) const {
    log(true, DDLogFlagInfo, &fields, format, arguments...);
  }

 private:
  template <class... Arguments>
  void log(bool asynchronous, std::int32_t flag, const LogFields* fields, const logging::FormatString<Arguments...>& format,
           const Arguments&... arguments) const {
    const std::int32_t allowed = level();
    if ((allowed & flag) == 0 || format.isAbsent()) return;
    const auto& place = format.place();
    const DDLog::Statement statement{asynchronous, allowed, flag, _context, place.file, place.function, place.line};
    logging::withArguments([&](auto list) { DDLog::log(statement, format.text(), list, fields); }, arguments...);
  }

  std::atomic<std::int32_t> _level;
  const std::int32_t _context;
};
