#include "logging/DDASLLogger.h"

#include "platform/LoggingPlatform.h"

namespace {

constexpr int critical = 2;
constexpr int error = 3;
constexpr int warning = 4;
constexpr int notice = 5;

int systemLevel(std::int32_t logLevel) {
  switch (logLevel) {
    case 1:
      return critical;
    case 2:
      return error;
    case 3:
      return warning;
    default:
      return notice;
  }
}

}  // namespace

std::shared_ptr<DDASLLogger> DDASLLogger::sharedInstance() {
  platform::LoggingPlatform* platform = platform::installed();
  if (platform == nullptr) return nullptr;
  auto* logger = platform->process.once<DDASLLogger>(
      [&] { return std::make_shared<DDASLLogger>(SingletonKey{}, platform->loggingHost); });
  return logger == nullptr ? nullptr : std::static_pointer_cast<DDASLLogger>(logger->shared_from_this());
}

DDASLLogger::DDASLLogger(SingletonKey /*key*/, platform::LoggingHost* host)
    : DDAbstractLogger("cocoa.plamaiskre.aslLogger") {
  if (host == nullptr) return;
  client = &host->leveledSystemLog;
  client->open("com.apple.console");
}

void DDASLLogger::logMessage(const DDLogMessage& message) {
  if (client == nullptr) return;
  if (const auto text = textOf(message)) client->log(systemLevel(message.logLevel()), *text);
}
