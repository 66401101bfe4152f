#pragma once
// A log of the test's own, and statements for it.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"

namespace tests {

inline void logText(bool asynchronous, std::string_view text) {
  DDLog::log_level_flag_context_file_function_line_format(asynchronous, 3, DDLogFlagWarning, 0, "Code/Test.mm", "test", 1,
                                                          "%@", text);
}

class LogTest : public testing::Test {
 protected:
  std::shared_ptr<RecordingLogger> added(const std::string& name = "recording") {
    auto logger = std::make_shared<RecordingLogger>(name);
    DDLog::addLogger(logger);
    return logger;
  }

  platform::fake::FakePlatform fake;
};

}  // namespace tests
