#include "foundation/text/DateFormatter.h"

#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/Environment.h"

using foundation::Date;
using foundation::DateFormatter;

namespace {

Date at(std::int64_t seconds, int milliseconds = 0) {
  return Date(std::chrono::seconds(seconds) + std::chrono::milliseconds(milliseconds));
}

// The zone of the test, and the old one afterwards.
class Zone {
 public:
  explicit Zone(const std::string& name) : _variable("TZ", name) { ::tzset(); }

 private:
  tests::EnvironmentVariable _variable;
};

}  // namespace

TEST(DateFormatter, FillsItsFieldsAndKeepsTheRest) {
  const Zone zone("UTC");
  EXPECT_EQ(DateFormatter("yyyy/MM/dd HH:mm:ss:SSS").stringFromDate(at(1700000000, 7)), "2023/11/14 22:13:20:007");
  EXPECT_EQ(DateFormatter("yyyy-MM-dd").stringFromDate(at(0)), "1970-01-01");
  EXPECT_EQ(DateFormatter("(HH)").stringFromDate(at(3600)), "(01)");
}

TEST(DateFormatter, MillisecondsAreCutOffNotRounded) {
  const Zone zone("UTC");
  const DateFormatter formatter("ss:SSS");
  EXPECT_EQ(formatter.stringFromDate(Date(std::chrono::nanoseconds(1'999'999'999))), "01:999");
  EXPECT_EQ(formatter.stringFromDate(Date(std::chrono::nanoseconds(-1))), "59:999");
}

TEST(DateFormatter, TheSameSecondInAnyOrderIsRight) {
  const Zone zone("UTC");
  const DateFormatter one("HH:mm:ss:SSS");
  const DateFormatter other("ss.SSS");
  for (const int second : {5, 4, 5, 59, 60, 3599, 3600}) {
    std::tm parts{};
    parts.tm_sec = second % 60;
    parts.tm_min = second / 60 % 60;
    parts.tm_hour = second / 3600;
    char expected[32];
    std::strftime(expected, sizeof expected, "%H:%M:%S:042", &parts);
    EXPECT_EQ(one.stringFromDate(at(second, 42)), expected);
    EXPECT_EQ(other.stringFromDate(at(second, 1)).substr(2), ".001");
  }
}

TEST(DateFormatter, TheClockJumpsWithSummerTime) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const DateFormatter formatter("HH:mm:ss");
  // 2023-03-26 01:00:00 and 2023-10-29 01:00:00 universal time.
  EXPECT_EQ(formatter.stringFromDate(at(1679792399)), "01:59:59");
  EXPECT_EQ(formatter.stringFromDate(at(1679792400)), "03:00:00");
  EXPECT_EQ(formatter.stringFromDate(at(1698541199)), "02:59:59");
  EXPECT_EQ(formatter.stringFromDate(at(1698541200)), "02:00:00");
}

TEST(DateFormatter, DaysHaveTwentyThreeOrTwentyFiveHours) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const DateFormatter formatter("MM/dd HH");
  EXPECT_EQ(formatter.stringFromDate(at(1679785200)), "03/26 00");
  EXPECT_EQ(formatter.stringFromDate(at(1679785200 + 23 * 3600)), "03/27 00");
}

TEST(DateFormatter, ShowsTheZoneOfTheDate) {
  const DateFormatter formatter("HHZZZZZZ");
  const Zone zone("Europe/Berlin");
  EXPECT_EQ(formatter.stringFromDate(at(1767225600)), "01+01:00");
  EXPECT_EQ(formatter.stringFromDate(at(1782864000)), "02+02:00");
}

TEST(DateFormatter, ShowsAZoneWestOfGreenwichWithHalfAnHour) {
  const Zone zone("XST+3:30");
  EXPECT_EQ(DateFormatter("HH:mmZZZZZZ").stringFromDate(at(1767225600)), "20:30-03:30");
}
