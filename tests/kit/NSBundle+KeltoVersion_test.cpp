#include "kit/NSBundle+KeltoVersion.h"

#include <gtest/gtest.h>

#include "logging/KTLogger.h"
#include "platform/fake/FakePlatform.h"

using NSBundle::Kelto::appVersion;

namespace {

struct AdditionalLogger : KTAdditionalLoggerProtocol {
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const foundation::FormatArgument> arguments) override {
    messages.push_back(foundation::format(format, arguments));
    selectors.emplace_back(selector);
    levels.push_back(level);
  }
  std::vector<std::string> messages;
  std::vector<std::string> selectors;
  std::vector<std::int32_t> levels;
};

class Version : public testing::Test {
 protected:
  Version() { KTLogger::sharedLogger()->setAdditionalLogger(&additional); }
  ~Version() override { KTLogger::sharedLogger()->setAdditionalLogger(nullptr); }

  KTAppVersion parse(const char* text) {
    fake.bundles.main.info.insert_or_assign("CFBundleVersion", text);
    return appVersion(fake.bundles.main);
  }
  // The message with its location, as both loggers get it.
  std::string message(int line, const std::string& text) {
    return foundation::formatted("[NSBundle(%p) appVersion]:%d %@",
                                 static_cast<const void*>(static_cast<platform::Bundle*>(&fake.bundles.main)), line, text);
  }
  void expectLogged(int line, const std::string& text) {
    const std::string expected = message(line, text);
    EXPECT_EQ(additional.messages, std::vector<std::string>{expected});
    EXPECT_EQ(additional.levels, std::vector<std::int32_t>{3});
    ASSERT_EQ(fake.systemLog.lines.size(), 1U);
    EXPECT_EQ(fake.systemLog.lines[0], "<Error> " + expected);
  }
  void expectNothingLogged() {
    EXPECT_TRUE(additional.messages.empty());
    EXPECT_TRUE(fake.systemLog.lines.empty());
  }

  platform::fake::FakePlatform fake;
  AdditionalLogger additional;
};

}  // namespace

TEST_F(Version, FourPartsAreRead) {
  EXPECT_EQ(parse("4.2.1234b"), (KTAppVersion{4, 2, 1234, u'b'}));
  expectNothingLogged();
}

TEST_F(Version, WithoutALetterQfeIsZero) {
  EXPECT_EQ(parse("4.2.1234"), (KTAppVersion{4, 2, 1234, 0}));
  expectNothingLogged();
}

TEST_F(Version, ALongerQfeIsLoggedAndZero) {
  EXPECT_EQ(parse("4.2.1234rc"), (KTAppVersion{4, 2, 1234, 0}));
  expectLogged(126, "Unable to parse qfe of version  4.2.1234rc");
}

TEST_F(Version, ABuildThatIsNotANumberIsLoggedAndZero) {
  EXPECT_EQ(parse("4.2.x1"), (KTAppVersion{4, 2, 0, 0}));
  expectLogged(132, "Unable to parse build number of version 4.2.x1");
}

TEST_F(Version, AnEmptyBuildIsLogged) {
  EXPECT_EQ(parse("4.2."), (KTAppVersion{4, 2, 0, 0}));
  expectLogged(132, "Unable to parse build number of version 4.2.");
}

TEST_F(Version, APercentSignInTheVersionIsLoggedAsItIs) {
  parse("4.2.%@");
  expectLogged(132, "Unable to parse build number of version 4.2.%@");
}

TEST_F(Version, OneNumberIsTheMajor) {
  EXPECT_EQ(parse("4"), (KTAppVersion{4, 0, 0, 0}));
  EXPECT_EQ(parse("4.2"), (KTAppVersion{4, 2, 0, 0}));
  expectNothingLogged();
}

TEST_F(Version, AMissingVersionIsAllZeros) {
  EXPECT_EQ(appVersion(fake.bundles.main), KTAppVersion{});
  fake.bundles.main.info.insert_or_assign("CFBundleVersion", 4);
  EXPECT_EQ(appVersion(fake.bundles.main), KTAppVersion{});
  EXPECT_EQ(parse(""), KTAppVersion{});
  expectNothingLogged();
}

TEST_F(Version, MajorAndMinorAreTheirLeadingIntegers) {
  EXPECT_EQ(parse("4x. 2y.3"), (KTAppVersion{4, 2, 3, 0}));
  EXPECT_EQ(parse("x.y.3"), (KTAppVersion{0, 0, 3, 0}));
  EXPECT_EQ(parse("..3"), (KTAppVersion{0, 0, 3, 0}));
}

TEST_F(Version, FurtherComponentsAreIgnored) {
  EXPECT_EQ(parse("1.2.3.4b"), (KTAppVersion{1, 2, 3, 0}));
  expectNothingLogged();
}

TEST_F(Version, BlanksBeforeTheBuildAndTheQfeArePassedOver) {
  EXPECT_EQ(parse("1.2. \n\u00A0 3 \t b"), (KTAppVersion{1, 2, 3, u'b'}));
  EXPECT_EQ(parse("1.2.3 7"), (KTAppVersion{1, 2, 3, u'7'}));
}

TEST_F(Version, ARunEndsWhereLettersAndDigitsEnd) { EXPECT_EQ(parse("1.2.3b-rc"), (KTAppVersion{1, 2, 3, u'b'})); }

TEST_F(Version, OtherTextBehindTheBuildIsPassedOverInSilence) {
  EXPECT_EQ(parse("1.2.3-b"), (KTAppVersion{1, 2, 3, 0}));
  EXPECT_EQ(parse("1.2.3 "), (KTAppVersion{1, 2, 3, 0}));
  expectNothingLogged();
}

TEST_F(Version, ALetterBeyondASCIIIsOneCharacter) { EXPECT_EQ(parse("1.2.3\u00E9"), (KTAppVersion{1, 2, 3, u'\u00E9'})); }

TEST_F(Version, NumbersStopAtTheLimitOfTheScanner) {
  EXPECT_EQ(parse("99999999999999999999.9223372036854775808.18446744073709551616"),
            (KTAppVersion{9223372036854775807U, 9223372036854775807U, 9223372036854775807U, 0}));
  EXPECT_EQ(parse("9223372036854775807.0.9223372036854775806"),
            (KTAppVersion{9223372036854775807U, 0, 9223372036854775806U, 0}));
}

TEST_F(Version, AMinusSignIsTakenModuloTheFieldsSize) {
  EXPECT_EQ(parse("-1.+2.-3"), (KTAppVersion{UINT64_MAX, 2, UINT64_MAX - 2, 0}));
}

TEST_F(Version, IsParsedAfreshAtEveryCall) {
  EXPECT_EQ(parse("1.0").major, 1U);
  EXPECT_EQ(parse("2.0").major, 2U);
}
