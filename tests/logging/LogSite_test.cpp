#include "logging/LogSite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "tests/logging/LogTest.h"

using namespace tests;
using testing::ElementsAre;

namespace {

struct Point {
  int x;
};
std::ostream& operator<<(std::ostream& stream, const Point& point) { return stream << "(" << point.x << ")"; }

class LogSiteTest : public LogTest {};

TEST_F(LogSiteTest, ASiteLogsWhatItsLevelLetsThroughWithItsPlace) {
  const auto logger = added();
  const DDLogSite site(DDLogFlagError | DDLogFlagWarning, 12);
  site.info("%d", 1);
  site.warning("w%d", 2);
  const int line = __LINE__ + 1;
  site.error("e%d", 3);
  EXPECT_THAT(logger->texts(), ElementsAre("w2", "e3"));
  const auto record = logger->records().at(1);
  EXPECT_EQ(record.fileName(), "LogSite_test");
  EXPECT_EQ(record.lineNumber(), line);
  EXPECT_EQ(record.logFlag(), DDLogFlagError);
  EXPECT_EQ(record.logLevel(), 3);
  EXPECT_EQ(record.logContext(), 12);
}

TEST_F(LogSiteTest, AnythingThatPrintsItselfIsAnArgument) {
  const auto logger = added();
  const DDLogSite site(7);
  site.error("%@ %@ %@ %@", Point{4}, std::string("text"), 5, static_cast<const char*>(nullptr));
  EXPECT_THAT(logger->texts(), ElementsAre("(4) text 5 (null)"));
}

TEST_F(LogSiteTest, AFormatMadeAtRunTimeShowsWhatDoesNotFit) {
  const auto logger = added();
  const DDLogSite site(7);
  const std::string format = "%d %s %@ %";
  site.error(format, "text", 5);
  EXPECT_THAT(logger->texts(), ElementsAre("text 5 (null) %"));
}

}  // namespace
