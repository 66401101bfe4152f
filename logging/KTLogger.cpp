#include "logging/KTLogger.h"

#include "foundation/runtime/Lasting.h"
#include "kit/NSUserDefaults+Debug.h"
#include "logging/DDLog.h"

namespace {

// How a statement is treated, by its level; the holes in the scale have no heading.
struct Treatment {
  std::string_view heading;  // of the echoed line
  bool isRecorded = false;
  bool isAsynchronous = false;
  std::int32_t level = 0;
  std::int32_t flag = 0;
};
constexpr Treatment treatments[] = {
    {.heading = "<Always> ", .isRecorded = true, .level = 0, .flag = DDLogFlagInfo},
    {.heading = "<Alert> ", .isRecorded = true, .level = 3, .flag = DDLogFlagError},
    {},
    {.heading = "<Error> ", .isRecorded = true, .level = 3, .flag = DDLogFlagError},
    {.heading = "<Warning> ", .isRecorded = true, .isAsynchronous = true, .level = 3, .flag = DDLogFlagWarning},
    {.heading = "<Info> "},
    {},
    {.heading = "<Debug> "},
};

constexpr const char* sourceFile = "KCLibKit/Code/KTLogger.mm";
constexpr const char* operation = "log:level:message:";
constexpr std::int32_t sourceLine = 112;

constexpr double rollingFrequency = 86400.0;
constexpr std::size_t maximumNumberOfLogFiles = 7;

constexpr std::int64_t belowEveryLevel = -1;

}  // namespace

constinit std::atomic<KTLogger*> KTLogger::_shared{nullptr};
constinit std::atomic<KTLogger*> KTLogger::_retired{nullptr};

KTLogger* KTLogger::makeSharedLogger() {
  // For statements outside the life of a platform, even at the very end of the process.
  static constinit foundation::Lasting<KTLogger> lasting;
  const auto mute = [] { return &lasting.get([] { return std::make_unique<KTLogger>(SingletonKey{}, nullptr); }); };
  const platform::Visit visit;
  platform::LoggingPlatform* platform = visit ? platform::installed() : nullptr;
  if (platform == nullptr) return mute();
  KTLogger* logger = platform->process.once<KTLogger>([&] {
    const std::shared_ptr<KTLogger> made(new KTLogger(SingletonKey{}, platform), Retire());
    made->initSingleton(*platform);
    return made;
  });
  return logger == nullptr ? mute() : logger;
}

KTLogger::KTLogger(SingletonKey /*key*/, platform::LoggingPlatform* platform)
    : _defaults(platform == nullptr ? nullptr : &platform->standardUserDefaults),
      _mainBundle(platform == nullptr ? nullptr : &platform->bundles.mainBundle()),
      _systemLog(platform == nullptr ? nullptr : &platform->systemLog),
      _generationOfDefaults(platform == nullptr ? nullptr : platform->standardUserDefaults.generation()) {}

// Threads may hold the pointer, so the object stays.
void KTLogger::retire() {
  KTLogger* self = this;
  _shared.compare_exchange_strong(self, nullptr);
  _defaults = nullptr;
  fileLogger.reset();
  _retiredBefore = _retired.exchange(this);
}

void KTLogger::initSingleton(platform::LoggingPlatform& platform) {
  // Where there is nowhere to log to, statements are echoed only.
  if (platform.loggingHost != nullptr) installFileLogger(platform);
  _shared.store(this, std::memory_order_release);
}

void KTLogger::installFileLogger(platform::LoggingPlatform& platform) {
  DDLog::initialize();
  fileLogger = std::make_shared<DDFileLogger>(platform);
  fileLogger->setRollingFrequency(rollingFrequency);
  fileLogger->logFileManager()->setMaximumNumberOfLogFiles(maximumNumberOfLogFiles);
  DDLog::addLogger(fileLogger);
}

std::int64_t KTLogger::readThreshold() {
  const platform::Visit visit;
  if (!visit) platform::reportLostStatement();
  const platform::UserDefaults* defaults = visit ? _defaults.load() : nullptr;
  if (defaults == nullptr) return belowEveryLevel;
  const std::uint64_t generation = _generationOfDefaults->load(std::memory_order_acquire);
  const std::int64_t threshold = NSUserDefaults::Debug::loggingLevel(*defaults, *_mainBundle);
  _threshold.store(threshold, std::memory_order_relaxed);
  _generation.store(generation, std::memory_order_release);
  return threshold;
}

void KTLogger::log(std::string_view /*selector*/, std::int32_t level, std::string_view format,
                   std::span<const foundation::FormatArgument> arguments) {
  const auto index = static_cast<std::uint32_t>(level);
  if (index >= std::size(treatments) || treatments[index].heading.empty()) return;
  const platform::Visit visit;
  if (!visit) platform::reportLostStatement();
  if (!visit || _defaults == nullptr) return;
  const Treatment& treatment = treatments[index];
  // Formatted once: the record is the echoed line without its heading.
  std::string line(treatment.heading);
  foundation::appendFormat(line, format, arguments);
  if (treatment.isRecorded && fileLogger)
    DDLog::logText({.asynchronous = treatment.isAsynchronous,
                    .level = treatment.level,
                    .flag = treatment.flag,
                    .context = 0,
                    .file = sourceFile,
                    .function = operation,
                    .line = sourceLine},
                   std::string_view(line).substr(treatment.heading.size()));
  _systemLog->log(line);
}

std::vector<std::string> KTLogger::logFileList() {
  std::vector<std::string> paths;
  const platform::Visit visit;
  if (!visit || !fileLogger) return paths;
  DDLog::flushLog();
  for (const auto& info : fileLogger->logFileManager()->sortedLogFileInfos()) paths.push_back(info->filePath());
  return paths;
}

namespace KTDiagnostics {
namespace {

constexpr std::string_view locationFormat = "[%@(%p) %@]:%d ";

}  // namespace

void log(const Location& location, std::int32_t level, std::string_view format,
         std::span<const foundation::FormatArgument> arguments) {
  KTLogger* shared = KTLogger::sharedLogger();
  KTAdditionalLoggerProtocol* additional = shared->additionalLogger();
  if (additional == nullptr && shared->isSilenced(level)) return;
  std::vector<foundation::FormatArgument> all{location.className, location.object, location.selector, location.line};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const std::string located = std::string(locationFormat).append(format);
  shared->log_level_message(location.selector, level, located, std::span<const foundation::FormatArgument>(all));
  if (additional != nullptr) additional->log_level_message(location.selector, level, located, all);
}

}  // namespace KTDiagnostics
