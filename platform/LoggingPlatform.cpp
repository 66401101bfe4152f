#include "platform/LoggingPlatform.h"

#include <atomic>
#include <cstdio>

namespace platform {
namespace {

constinit std::atomic<LoggingPlatform*> theOne{nullptr};

bool canFenceOthers(const LoggingPlatform& platform) {
  return platform.loggingHost != nullptr && platform.loggingHost->process.fenceOtherThreads();
}

}  // namespace

LoggingPlatform* installed() { return theOne.load(); }

LoggingInstallation::LoggingInstallation(LoggingPlatform& platform) : _isFencing(canFenceOthers(platform)) {
  foundation::Visit::setVisitorsFence(!_isFencing);
  theOne.store(&platform);
}

LoggingInstallation::~LoggingInstallation() {
  const LoggingPlatform* platform = theOne.exchange(nullptr);
  if (_isFencing) canFenceOthers(*platform);
  foundation::Visit::waitForOthers();
}

void reportLostStatement() {
  static constinit std::atomic<bool> hasReported{false};
  if (!hasReported.exchange(true))
    std::fputs("logging: a statement is lost, because no platform is installed; make one at the start of main\n", stderr);
}

}  // namespace platform
