#include "logging/KTLogger.h"

#include "kit/NSUserDefaults+Debug.h"
#include "platform/Platform.h"

namespace {

// The names in the echoed lines, by level; the holes in the scale have none.
constexpr std::string_view levelNames[] = {"Always", "Alert", "", "Error", "Warning", "Info", "", "Debug"};

}  // namespace

KTLogger* KTLogger::sharedLogger() {
  return platform::current().process.once<KTLogger>([] { return std::make_shared<KTLogger>(SingletonKey{}); });
}

void KTLogger::log_level_message(std::string_view /*selector*/, std::int32_t level, std::string_view format,
                                 std::span<const platform::FormatArgument> arguments) {
  auto& platform = platform::current();
  const auto unsignedLevel = static_cast<std::uint32_t>(level);
  if (NSUserDefaults::Debug::loggingLevel(platform.standardUserDefaults) < std::int64_t{unsignedLevel}) return;
  if (unsignedLevel >= std::size(levelNames) || levelNames[unsignedLevel].empty()) return;
  const std::string message = platform::format(format, arguments);
  platform.systemLog.log(platform::formatted("<%@> %@", levelNames[unsignedLevel], message));
}

std::vector<std::string> KTLogger::logFileList() { return {}; }

namespace KTDiagnostics {

std::string locationTag(const Location& location) {
  return platform::formatted("[%@(%p) %@]:%d", location.className, location.object, location.selector, location.line);
}

void log(const Location& location, std::int32_t level, std::string_view format,
         std::span<const platform::FormatArgument> arguments) {
  const std::string tag = locationTag(location);
  std::vector<platform::FormatArgument> all{platform::FormatArgument(tag)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const std::string tagged = "%@ " + std::string(format);
  KTLogger* shared = KTLogger::sharedLogger();
  shared->log_level_message(location.selector, level, tagged, std::span<const platform::FormatArgument>(all));
  if (auto* additional = shared->additionalLogger()) additional->log_level_message(location.selector, level, tagged, all);
}

}  // namespace KTDiagnostics
