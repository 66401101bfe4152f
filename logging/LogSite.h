#pragma once
// A calling site that logs through the core with a level of its own:
//
//   DDLogSite site{DDLogFlagError | DDLogFlagWarning};
//   site.error("%@ has %d parts", name, count);
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
    log(false, DDLogFlagError, format, arguments...);
  }
  template <class... Arguments>
  void warning(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) const {
    log(true, DDLogFlagWarning, format, arguments...);
  }
  template <class... Arguments>
  void info(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) const {
    log(true, DDLogFlagInfo, format, arguments...);
  }

 private:
  template <class... Arguments>
  void log(bool asynchronous, std::int32_t flag, const logging::FormatString<Arguments...>& format,
           const Arguments&... arguments) const {
    const std::int32_t allowed = level();
    if ((allowed & flag) == 0) return;
    const auto& place = format.place();
    DDLog::log_level_flag_context_file_function_line_format<Arguments...>(asynchronous, allowed, flag, _context, place.file,
                                                                          place.function, place.line, format, arguments...);
  }

  std::atomic<std::int32_t> _level;
  const std::int32_t _context;
};
