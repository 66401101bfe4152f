#pragma once
// The one door through which the application logs.
//
// Any thread. A format uses %@ and its kin (foundation/text/Format.h); a literal one is checked against its arguments while
// compiling, and none is applied when the level is silenced. Every message goes to the system log; always, alerts, errors
// and warnings also go to the log files in the user's Library/Logs/<process>, seven files besides the one in use, a new one
// every day or every 1,048,576 bytes. Errors and what is graver are on file when the call returns.
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Api.h"
#include "logging/DDFileLogger.h"
#include "logging/FormatString.h"
#include "platform/LoggingPlatform.h"

// A further logger that a client may attach to the facade. The facade stores and returns it and never calls it; code that
// reports to both logs to it directly (KTDiagnostics below).
class KELTO_API KTAdditionalLoggerProtocol {
 public:
  virtual ~KTAdditionalLoggerProtocol() = default;
  virtual void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                                 std::span<const foundation::FormatArgument> arguments) = 0;
};

class KELTO_API KTLogger {
  struct SingletonKey {};

 public:
  // The one logger of the process, made at the first call. Instances come from nowhere else. Without an installed platform
  // it is an object that logs nothing. The pointer stays good for ever; after the end of its platform it logs nothing.
  static KTLogger* sharedLogger() {
    KTLogger* logger = _shared.load(std::memory_order_acquire);
    return logger != nullptr ? logger : makeSharedLogger();
  }
  KTLogger(SingletonKey, platform::LoggingPlatform* platform);
  KTLogger(const KTLogger&) = delete;
  KTLogger& operator=(const KTLogger&) = delete;

  // Logs at a facade level: 0 always, 1 alert, 3 error, 4 warning, 5 info, 7 debug; 2, 6 and what is above 7 log nothing.
  // Silenced when the logging level of the user defaults is below `level` (read as unsigned). `selector` is the caller's
  // own operation; it is accepted and not recorded.
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const foundation::FormatArgument> arguments) {
    if (isSilenced(level)) return;
    log(selector, level, format, arguments);
  }
  template <class... Arguments>
  void log_level_message(std::string_view selector, std::int32_t level,
                         std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) {
    if (isSilenced(level)) return;
    logging::withArguments([&](auto list) { log(selector, level, format.text(), list); }, arguments...);
  }

  // The paths of the log files, newest first, with everything in them that was logged before. Waits for that: not from the
  // logging queue or a logger's.
  std::vector<std::string> logFileList();

  // Whether a statement of this level is dropped unformatted: the threshold is below `level`, read as unsigned.
  [[nodiscard]] bool isSilenced(std::int32_t level) {
    const bool isKnown = _generationOfDefaults != nullptr && _generationOfDefaults->load(std::memory_order_acquire) ==
                                                                 _generation.load(std::memory_order_acquire);
    const std::int64_t threshold =
        isKnown && !isReadingDue() ? _threshold.load(std::memory_order_relaxed) : readThreshold();
    return threshold < std::int64_t{static_cast<std::uint32_t>(level)};
  }

  // Not owned; nullptr when none is attached. The client that attaches one keeps it alive and takes it away again.
  [[nodiscard]] KTAdditionalLoggerProtocol* additionalLogger() const { return _additionalLogger.load(); }
  void setAdditionalLogger(KTAdditionalLoggerProtocol* logger) { _additionalLogger.store(logger); }

 private:
  // Number of calls that may pass before a change that another program made to the defaults is noticed.
  static constexpr std::uint32_t callsPerReading = 1024;

  struct Retire {
    void operator()(KTLogger* logger) const { logger->retire(); }
  };

  static KTLogger* makeSharedLogger();
  void retire();
  void initSingleton(platform::LoggingPlatform& platform);
  void installFileLogger(platform::LoggingPlatform& platform);
  bool isReadingDue() {
    const auto calls = _calls.load(std::memory_order_relaxed) + 1;
    _calls.store(calls, std::memory_order_relaxed);
    return calls % callsPerReading == 0;
  }
  // Without a platform a threshold below every level.
  std::int64_t readThreshold();
  void log(std::string_view selector, std::int32_t level, std::string_view format,
           std::span<const foundation::FormatArgument> arguments);

  static std::atomic<KTLogger*> _shared;
  static std::atomic<KTLogger*> _retired;
  // All of the platform's; nullptr when that is gone, which a visit keeps from happening.
  std::atomic<platform::UserDefaults*> _defaults;
  const platform::Bundle* const _mainBundle;
  platform::SystemLog* const _systemLog;
  KTLogger* _retiredBefore = nullptr;
  // Read without a visit, so that a silenced statement costs no more than the comparison.
  const std::shared_ptr<const platform::UserDefaults::Generation> _generationOfDefaults;
  std::atomic<std::uint64_t> _generation{0};  // the one that the threshold was read in
  std::atomic<std::int64_t> _threshold{0};
  std::atomic<std::uint32_t> _calls{0};
  std::shared_ptr<DDFileLogger> fileLogger;
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

// The message begins with "[class(address) selector]:line ". `format` must not use positions (%1$@).
KELTO_API void log(const Location& location, std::int32_t level, std::string_view format,
                   std::span<const foundation::FormatArgument> arguments);

template <class... Arguments>
void log(const Location& location, std::int32_t level, std::type_identity_t<logging::FormatString<Arguments...>> format,
         const Arguments&... arguments) {
  logging::withArguments([&](auto list) { log(location, level, format.text(), list); }, arguments...);
}

}  // namespace KTDiagnostics
