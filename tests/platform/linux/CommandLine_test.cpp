#include "platform/linux/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"

namespace platform::Linux {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct CommandLineTest : testing::Test {
  std::optional<int> answer(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "program");
    testing::internal::CaptureStdout();
    const auto status =
        answerToCommandLine(static_cast<int>(arguments.size()), arguments.data(), commandLine, "program", bundle, log);
    output = testing::internal::GetCapturedStdout();
    return status;
  }

  const CommandLine commandLine{"the help of %@\n", {"Path", "Flag"}};
  fake::FakeBundle bundle;
  fake::FakeSystemLog log;
  std::string output;
};

TEST_F(CommandLineTest, KnownArgumentsLetTheApplicationRun) {
  EXPECT_EQ(answer({}), std::nullopt);
  EXPECT_EQ(answer({"-Path", "/a", "-Flag", "YES"}), std::nullopt);
  EXPECT_EQ(answer({"-Path", "-1"}), std::nullopt) << "a number is a value";
  EXPECT_EQ(answer({"-Flag", "-Path", "/a"}), std::nullopt) << "a key without a value counts as not given";
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(CommandLineTest, HelpAndVersionAreAnsweredWhateverElseIsThere) {
  EXPECT_EQ(answer({"-Path", "/a", "--help", "-nonsense"}), 0);
  EXPECT_EQ(output, "the help of program\n");
  bundle.info = {{"CFBundleShortVersionString", "2.1"}, {"CFBundleExecutable", "AcmeInstaller"}};
  EXPECT_EQ(answer({"--help"}), 0);
  EXPECT_EQ(output, "the help of AcmeInstaller\n");
  EXPECT_EQ(answer({"--version"}), 0);
  EXPECT_EQ(output, "program 2.1\n");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(CommandLineTest, UnknownArgumentsAreNamedInOneLine) {
  EXPECT_EQ(answer({"-Path", "/a", "-Pth", "/b", "--quick"}), static_cast<int>(Ending::badArguments));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("unknown: -Pth, /b, --quick (")));
  EXPECT_EQ(output, "");
}

}  // namespace
}  // namespace platform::Linux
