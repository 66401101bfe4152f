#pragma once
// The one door through which the application logs.
//
// Any thread. A format uses %@ and its kin (platform/Format.h); it is not applied when the level is silenced.
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Format.h"

// A further logger that a client may attach to the facade. The facade stores and returns it and never calls it; code that
// reports to both logs to it directly (KTDiagnostics below).
class KTAdditionalLoggerProtocol {
 public:
  virtual ~KTAdditionalLoggerProtocol() = default;
  virtual void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                                 std::span<const platform::FormatArgument> arguments) = 0;
};

class KTLogger {
  struct SingletonKey {};

 public:
  // The one logger of the process, made at the first call. Instances come from nowhere else.
  static KTLogger* sharedLogger();
  explicit KTLogger(SingletonKey) {}
  KTLogger(const KTLogger&) = delete;
  KTLogger& operator=(const KTLogger&) = delete;

  // Logs at a facade level: 0 always, 1 alert, 3 error, 4 warning, 5 info, 7 debug; 2, 6 and what is above 7 log nothing.
  // Silenced when the logging level of the user defaults is below `level` (read as unsigned). `selector` is the caller's
  // own operation; it is accepted and not recorded.
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const platform::FormatArgument> arguments);
  template <class... Arguments>
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         const Arguments&... arguments) {
    if constexpr (sizeof...(Arguments) == 0) {
      log_level_message(selector, level, format, std::span<const platform::FormatArgument>{});
    } else {
      const platform::FormatArgument list[] = {platform::FormatArgument(arguments)...};
      log_level_message(selector, level, format, std::span<const platform::FormatArgument>(list));
    }
  }

  // The paths of the log files, newest first. Empty as long as nothing is logged to files.
  std::vector<std::string> logFileList();

  // Not owned; nullptr when none is attached. Whoever attaches one keeps it alive and takes it away again.
  [[nodiscard]] KTAdditionalLoggerProtocol* additionalLogger() const { return _additionalLogger.load(); }
  void setAdditionalLogger(KTAdditionalLoggerProtocol* logger) { _additionalLogger.store(logger); }

 private:
  std::atomic<KTAdditionalLoggerProtocol*> _additionalLogger{nullptr};
};

// Diagnostics of the kit: every message begins with the place it comes from and goes to the shared logger and to its
// additional logger.
namespace KTDiagnostics {

// Where a message comes from. `line` is fixed for each message, so that a message can be found by it in any version.
struct Location {
  std::string_view className;
  const void* object;
  std::string_view selector;
  int line;
};

// "[class(address) selector]:line".
std::string locationTag(const Location& location);

void log(const Location& location, std::int32_t level, std::string_view format,
         std::span<const platform::FormatArgument> arguments);

template <class... Arguments>
void log(const Location& location, std::int32_t level, std::string_view format, const Arguments&... arguments) {
  const platform::FormatArgument list[] = {platform::FormatArgument(arguments)...};
  log(location, level, format, std::span<const platform::FormatArgument>(list));
}

}  // namespace KTDiagnostics
