#include "logging/LogFields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "logging/LogSite.h"
#include "tests/logging/LogTest.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs pairsIn(LogFieldReader fields) {
  Pairs pairs;
  while (const auto field = fields.next()) pairs.emplace_back(field->key, field->value);
  return pairs;
}

Pairs decoded(const LogFields& fields) {
  std::string bytes;
  fields.encode(bytes);
  return pairsIn(LogFieldReader(bytes));
}

class Fields : public LogTest {
 protected:
  std::shared_ptr<RecordingLogger> logger = added();
  const DDLogSite site{DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo};
};

}  // namespace

TEST_F(Fields, ComeWithTheirRecordInTheirOrder) {
  site.error(LogFields{{"b", 1}, {"a", "one"}, {"b", 2.5}}, "text");
  site.warning(LogFields{{"only", std::string("x")}}, "%d", 1);
  site.info(LogFields{}, "none");
  DDLog::flushLog();
  const auto records = logger->records();
  ASSERT_EQ(records.size(), 3);
  EXPECT_THAT(pairsIn(records[0].fields()), ElementsAre(std::pair("b", "1"), std::pair("a", "one"), std::pair("b", "2.5")));
  EXPECT_THAT(pairsIn(records[1].fields()), ElementsAre(std::pair("only", "x")));
  EXPECT_THAT(pairsIn(records[2].fields()), IsEmpty());
  EXPECT_EQ(records[1].logMsg(), "1");
}

TEST_F(Fields, OfALongRecordAreWhole) {
  const std::string text(5000, 't');
  const std::string value(20000, 'v');
  site.error(LogFields{{"key", value}}, "%@", text);
  const auto records = logger->records();
  ASSERT_EQ(records.size(), 1);
  EXPECT_EQ(records[0].logMsg(), text);
  EXPECT_THAT(pairsIn(records[0].fields()), ElementsAre(std::pair(std::string("key"), value)));
}

TEST_F(Fields, ThatDoNotFitAreLeftOutWhole) {
  const std::string half(40000, 'x');
  EXPECT_THAT(decoded({{"one", half}, {"two", half}, {"three", 3}}),
              ElementsAre(std::pair(std::string("one"), half), std::pair("three", "3")));
  EXPECT_THAT(decoded({{"long", std::string(70000, 'x')}}), IsEmpty());
}

TEST_F(Fields, TellNumbersFromTexts) {
  std::string bytes;
  LogFields{{"number", 1U}, {"text", "1"}, {"infinite", std::numeric_limits<double>::infinity()}}.encode(bytes);
  LogFieldReader fields(bytes);
  EXPECT_TRUE(fields.next()->isNumber);
  EXPECT_FALSE(fields.next()->isNumber);
  EXPECT_FALSE(fields.next()->isNumber);
  EXPECT_FALSE(fields.next());
}

TEST_F(Fields, OfASilencedStatementAreNotRead) {
  const DDLogSite silent{0};
  silent.error(LogFields{{"key", 1}}, "text");
  EXPECT_THAT(logger->records(), IsEmpty());
}

TEST(LogFieldReader, TakesRubbishForTheEnd) {
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string rubbish(length, '\xFF');
    EXPECT_FALSE(LogFieldReader(rubbish).next());
  }
}
