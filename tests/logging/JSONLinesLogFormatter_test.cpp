#include "logging/JSONLinesLogFormatter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "logging/LogSite.h"
#include "tests/logging/LogTest.h"
#include "tests/support/Environment.h"

using namespace tests;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class JSONLines : public LogTest {
 protected:
  std::string line(const DDLogMessage& message) {
    std::string buffer = "left over";
    return std::string(*formatter.formatLogMessage(message, buffer));
  }
  // The end of the line of a record with this text, from the text on.
  std::string textOf(std::string_view text) {
    const std::string whole = line(DDLogMessage(text, 3, DDLogFlagError, 0, "f.cpp", nullptr, 1));
    return whole.substr(whole.find("\"text\":"));
  }

  JSONLinesLogFormatter formatter;
};

}  // namespace

TEST_F(JSONLines, HaveTheirMembersInOneOrderAndNoLineFeed) {
  std::string whole;
  foundation::Dispatch::SerialQueue::make("saving")->sync(
      [&] { whole = line(DDLogMessage("one\ntwo", 3, DDLogFlagWarning, 7, "a/Save.cpp", "save", 12)); });
  EXPECT_THAT(whole, testing::MatchesRegex("\\{\"time\":\"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]{12}[+-][0-9]{2}:[0-9]{2}\","
                                           "\"level\":\"warning\",\"thread\":\"[0-9a-f]+\",\"queue\":\"saving\","
                                           "\"file\":\"a/Save.cpp\",\"line\":12,\"function\":\"save\",\"context\":7,"
                                           "\"text\":\"one\\\\ntwo\"\\}"));
}

TEST_F(JSONLines, LeaveOutWhatARecordDoesNotHave) {
  const std::string whole = line(DDLogMessage("text", 3, 8, 0, "", nullptr, 0));
  EXPECT_THAT(whole, HasSubstr(",\"level\":8,"));
  for (const char* name : {"file", "line", "function", "context", "fields"})
    EXPECT_THAT(whole, Not(HasSubstr("\"" + std::string(name) + "\"")));
}

TEST_F(JSONLines, EscapeWhatEndsAStringAndControlCharacters) {
  EXPECT_EQ(textOf("a\"b\\c"), R"("text":"a\"b\\c"})");
  EXPECT_EQ(textOf(std::string_view("\0\x1b\t\x7f", 4)), "\"text\":\"\\u0000\\u001b\\t\x7f\"}");
  EXPECT_EQ(textOf("d\xC3\xA9j\xC3\xA0"), "\"text\":\"d\xC3\xA9j\xC3\xA0\"}");
  EXPECT_EQ(textOf("\xFF!"), "\"text\":\"\xEF\xBF\xBD!\"}");
}

TEST_F(JSONLines, HaveTheFieldsOfTheStatement) {
  const auto logger = added();
  const DDLogSite site{DDLogFlagError};
  site.error(LogFields{{"user", "Anna \"A\""}, {"tries", 3}, {"load", 0.5}, {"left", -1}}, "%d of %d", 1, 2);
  site.error("none");
  const auto records = logger->records();
  ASSERT_EQ(records.size(), 2);
  EXPECT_THAT(line(records[0]),
              EndsWith(R"("text":"1 of 2","fields":{"user":"Anna \"A\"","tries":3,"load":0.5,"left":-1}})"));
  EXPECT_THAT(line(records[1]), EndsWith(R"("text":"none"})"));
}
