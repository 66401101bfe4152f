#include "logging/KTLogger.h"

#include "kit/NSUserDefaults+Debug.h"
#include "logging/DDLog.h"

namespace {

// What becomes of a statement, by its level; the holes in the scale have no name.
struct Treatment {
  std::string_view name;  // in the echoed line
  bool isRecorded = false;
  bool isAsynchronous = false;
  std::int32_t level = 0;
  std::int32_t flag = 0;
};
constexpr Treatment treatments[] = {
    {.name = "Always", .isRecorded = true, .level = 0, .flag = DDLogFlagInfo},
    {.name = "Alert", .isRecorded = true, .level = 3, .flag = DDLogFlagError},
    {},
    {.name = "Error", .isRecorded = true, .level = 3, .flag = DDLogFlagError},
    {.name = "Warning", .isRecorded = true, .isAsynchronous = true, .level = 3, .flag = DDLogFlagWarning},
    {.name = "Info"},
    {},
    {.name = "Debug"},
};

constexpr const char* sourceFile = "KCLibKit/Code/KTLogger.mm";
constexpr const char* operation = "log:level:message:";
constexpr std::int32_t sourceLine = 112;

constexpr double rollingFrequency = 86400.0;
constexpr std::size_t maximumNumberOfLogFiles = 7;

}  // namespace

std::atomic<KTLogger*> KTLogger::_shared{nullptr};

KTLogger* KTLogger::makeSharedLogger() {
  // For statements outside the life of a platform, even at the very end of the process.
  static auto* const mute = new KTLogger(SingletonKey{}, nullptr);
  platform::Platform* platform = platform::installed();
  if (platform == nullptr) return mute;
  KTLogger* logger = platform->process.once<KTLogger>([&] {
    auto made = std::make_shared<KTLogger>(SingletonKey{}, platform);
    made->initSingleton();
    return made;
  });
  return logger == nullptr ? mute : logger;
}

KTLogger::KTLogger(SingletonKey /*key*/, platform::Platform* platform)
    : _defaults(platform == nullptr ? nullptr : &platform->standardUserDefaults),
      _mainBundle(platform == nullptr ? nullptr : &platform->bundles.mainBundle()),
      _systemLog(platform == nullptr ? nullptr : &platform->systemLog) {}

KTLogger::~KTLogger() {
  KTLogger* self = this;
  _shared.compare_exchange_strong(self, nullptr);
}

void KTLogger::initSingleton() {
  // Where there is nowhere to log to, statements are echoed only.
  if (platform::current().loggingHost != nullptr) installFileLogger();
  _shared.store(this, std::memory_order_release);
}

void KTLogger::installFileLogger() {
  DDLog::initialize();
  fileLogger = std::make_shared<DDFileLogger>();
  fileLogger->setRollingFrequency(rollingFrequency);
  fileLogger->logFileManager()->setMaximumNumberOfLogFiles(maximumNumberOfLogFiles);
  DDLog::addLogger(fileLogger);
}

std::int64_t KTLogger::readThreshold() {
  const std::uint64_t generation = _defaults->generation();
  const std::int64_t threshold = NSUserDefaults::Debug::loggingLevel(*_defaults, *_mainBundle);
  _threshold.store(threshold, std::memory_order_relaxed);
  _generation.store(generation, std::memory_order_release);
  return threshold;
}

void KTLogger::log(std::string_view /*selector*/, std::int32_t level, std::string_view format,
                   std::span<const foundation::FormatArgument> arguments) {
  const auto index = static_cast<std::uint32_t>(level);
  if (index >= std::size(treatments) || treatments[index].name.empty()) return;
  const Treatment& treatment = treatments[index];
  const std::string message = foundation::format(format, arguments);
  if (treatment.isRecorded && fileLogger)
    DDLog::log_level_flag_context_file_function_line_format(treatment.isAsynchronous, treatment.level, treatment.flag, 0,
                                                            sourceFile, operation, sourceLine, "%@", message);
  _systemLog->log(foundation::formatted("<%@> %@", treatment.name, message));
}

std::vector<std::string> KTLogger::logFileList() {
  std::vector<std::string> paths;
  if (!fileLogger) return paths;
  DDLog::flushLog();
  for (const auto& info : fileLogger->logFileManager()->sortedLogFileInfos()) paths.push_back(info->filePath());
  return paths;
}

namespace KTDiagnostics {

std::string locationTag(const Location& location) {
  return foundation::formatted("[%@(%p) %@]:%d", location.className, location.object, location.selector, location.line);
}

void log(const Location& location, std::int32_t level, std::string_view format,
         std::span<const foundation::FormatArgument> arguments) {
  const std::string tag = locationTag(location);
  std::vector<foundation::FormatArgument> all{foundation::FormatArgument(tag)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const std::string tagged = "%@ " + std::string(format);
  KTLogger* shared = KTLogger::sharedLogger();
  shared->log_level_message(location.selector, level, tagged, std::span<const foundation::FormatArgument>(all));
  if (auto* additional = shared->additionalLogger()) additional->log_level_message(location.selector, level, tagged, all);
}

}  // namespace KTDiagnostics
