#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "logging/ContextFilterLogFormatter.h"
#include "logging/DispatchQueueLogFormatter.h"
#include "platform/fake/FakePlatform.h"

using foundation::Dispatch::SerialQueue;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

class QueueColumn : public testing::Test {
 protected:
  std::string columnOf(const std::string& label) {
    std::string line;
    SerialQueue::make(label)->sync([&] { line = formatted(DDLogMessage("text", 3, 1, 0, "f", nullptr, 1)); });
    return line;
  }

  // The line without its time.
  std::string formatted(const DDLogMessage& message) {
    std::string buffer = "left over";
    const std::string line(*formatter.formatLogMessage(message, buffer));
    EXPECT_EQ(line.find(" ["), std::string("2023-11-14 22:13:20:000").size());
    return line.substr(line.find('['));
  }

  platform::fake::FakePlatform fake;
  DispatchQueueLogFormatter formatter;
};

std::optional<std::string> passed(DDLogFormatter& filter, std::int32_t context) {
  std::string buffer;
  const DDLogMessage message("text", 3, 1, context, "f", nullptr, 1);
  const auto text = filter.formatLogMessage(message, buffer);
  return text ? std::optional(std::string(*text)) : std::nullopt;
}

}  // namespace

TEST_F(QueueColumn, ItsWidthIsBroughtIntoItsBounds) {
  EXPECT_EQ(formatter.queueLength(), 6);
  const std::pair<int, int> cases[] = {{0, 4}, {3, 4}, {4, 4}, {35, 35}, {36, 35}, {100, 35}, {20, 20}};
  for (const auto& [given, kept] : cases) {
    formatter.setQueueLength(given);
    EXPECT_EQ(formatter.queueLength(), kept) << given;
  }
}

TEST_F(QueueColumn, TheMainThreadIsShownAsMainFilledUp) {
  EXPECT_EQ(formatted(DDLogMessage("text", 3, 1, 0, "f", nullptr, 1)), "[main  ] text");
}

TEST_F(QueueColumn, ALongLabelShowsItsFirstCharacters) { EXPECT_EQ(columnOf("abcdefghij"), "[abcdef] text"); }

TEST_F(QueueColumn, ALongLabelShowsItsLastCharactersWithRightAlignment) {
  formatter.setRightAlign(true);
  EXPECT_EQ(columnOf("abcdefghij"), "[efghij] text");
}

TEST_F(QueueColumn, AShortLabelIsFilledUpOnTheLeftWithRightAlignment) {
  formatter.setRightAlign(true);
  EXPECT_EQ(columnOf("abc"), "[   abc] text");
}

TEST_F(QueueColumn, ALabelOfTheWidthStandsAsItIs) { EXPECT_EQ(columnOf("abcdef"), "[abcdef] text"); }

TEST_F(QueueColumn, CharactersAreNotCutInHalf) { EXPECT_EQ(columnOf("äöüäöüäöü"), "[äöüäöü] text"); }

TEST_F(QueueColumn, WithoutALabelTheThreadIsShown) {
  formatter.setQueueLength(8);
  std::string line;
  std::string thread;
  std::thread([&] {
    const DDLogMessage message("text", 3, 1, 0, "f", nullptr, 1);
    thread = message.threadID();
    line = formatted(message);
  }).join();
  EXPECT_EQ(line, "[" + thread + std::string(8 - thread.size(), ' ') + "] text");
}

TEST_F(QueueColumn, AReplacementIsShownUntilItIsRemoved) {
  formatter.setReplacementString_forQueueLabel("net", "abcdefghij");
  EXPECT_EQ(formatter.replacementStringForQueueLabel("abcdefghij"), "net");
  EXPECT_EQ(columnOf("abcdefghij"), "[net   ] text");
  formatter.setReplacementString_forQueueLabel(std::nullopt, "abcdefghij");
  EXPECT_EQ(formatter.replacementStringForQueueLabel("abcdefghij"), std::nullopt);
  EXPECT_EQ(columnOf("abcdefghij"), "[abcdef] text");
}

TEST(ContextFilters, AnEmptyWhitelistDropsEveryRecord) {
  platform::fake::FakePlatform fake;
  ContextWhitelistFilterLogFormatter filter;
  EXPECT_EQ(passed(filter, 0), std::nullopt);
  EXPECT_EQ(passed(filter, 7), std::nullopt);
}

TEST(ContextFilters, AnEmptyBlacklistPassesEveryRecord) {
  platform::fake::FakePlatform fake;
  ContextBlacklistFilterLogFormatter filter;
  EXPECT_EQ(passed(filter, 0), "text");
  EXPECT_EQ(passed(filter, 7), "text");
}

TEST(ContextFilters, AListedContextPassesTheWhitelistAndNotTheBlacklist) {
  platform::fake::FakePlatform fake;
  ContextWhitelistFilterLogFormatter white;
  ContextBlacklistFilterLogFormatter black;
  white.addToWhitelist(7);
  black.addToBlacklist(7);
  EXPECT_EQ(passed(white, 7), "text");
  EXPECT_EQ(passed(white, 8), std::nullopt);
  EXPECT_EQ(passed(black, 7), std::nullopt);
  EXPECT_EQ(passed(black, 8), "text");
  EXPECT_TRUE(white.isOnWhitelist(7));
  EXPECT_TRUE(black.isOnBlacklist(7));
  black.removeFromBlacklist(7);
  EXPECT_THAT(black.blacklist(), IsEmpty());
}

TEST(ContextFilters, AContextAddedTwiceIsGoneAfterOneRemoval) {
  ContextWhitelistFilterLogFormatter filter;
  filter.addToWhitelist(7);
  filter.addToWhitelist(7);
  filter.addToWhitelist(-1);
  EXPECT_THAT(filter.whitelist(), UnorderedElementsAre(7, -1));
  filter.removeFromWhitelist(7);
  EXPECT_THAT(filter.whitelist(), UnorderedElementsAre(-1));
}
