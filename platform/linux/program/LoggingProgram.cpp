#include "platform/linux/program/LoggingProgram.h"

#include <string>

#include "platform/LoggingPlatform.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/FileManager.h"
#include "platform/linux/LoggingHost.h"
#include "platform/linux/PreferredLanguages.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"

namespace platform::Linux {
namespace {

std::string nameOf(const char* path) {
  const std::string text = path == nullptr ? "" : path;
  return text.substr(text.find_last_of('/') + 1);
}

}  // namespace

// Members are made in this order and go in the other.
struct LoggingProgram::Parts {
  Parts(int argc, const char* const* argv)
      : log(nameOf(argc > 0 ? argv[0] : nullptr)),
        defaults(argc, argv, bundles.mainBundle().bundleIdentifier().value_or(""), log) {}

  SystemLog log;
  Bundles bundles{log, [this] { return preferredLanguages(defaults); }};
  UserDefaults defaults;
  foundation::NotificationCenter center;
  FileManager fileManager;
  LoggingHost loggingHost;
  LoggingPlatform platform{defaults, center, bundles, fileManager, log, &loggingHost.host};
  LoggingInstallation installation{platform};
};

LoggingProgram::LoggingProgram(int argc, const char* const* argv) : _parts(std::make_unique<Parts>(argc, argv)) {}

LoggingProgram::~LoggingProgram() = default;

}  // namespace platform::Linux
