#include "cli/Arguments.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"

using cli::Command;
using cli::readArguments;

TEST(ArgumentsTest, AreACommandItsBundleAndItsOptionsInAnyOrder) {
  const auto read = readArguments({"update", "--yes", "/new/App.app", "--no-relaunch", "--to", "/Applications/App.app",
                                   "--wait-pid", "4711", "--json"});
  ASSERT_TRUE(read.arguments) << read.cause;
  EXPECT_EQ(read.arguments->command, Command::update);
  EXPECT_EQ(read.arguments->bundle, "/new/App.app");
  EXPECT_EQ(read.arguments->place, "/Applications/App.app");
  EXPECT_EQ(read.arguments->awaitedProcess, 4711);
  EXPECT_TRUE(read.arguments->isJSON);
  EXPECT_TRUE(read.arguments->isConfirmed);
  EXPECT_FALSE(read.arguments->relaunches);
}

TEST(ArgumentsTest, AskOnTheTerminalAndRelaunchUnlessTheySayOtherwise) {
  const auto read = readArguments({"remove", "/Applications/App.app"});
  ASSERT_TRUE(read.arguments) << read.cause;
  EXPECT_FALSE(read.arguments->isConfirmed);
  EXPECT_FALSE(read.arguments->isJSON);
  EXPECT_TRUE(read.arguments->relaunches);
  EXPECT_FALSE(read.arguments->awaitedProcess);
}

TEST(ArgumentsTest, OfEveryKindAreRefusedWithTheirCause) {
  const auto causeOf = [](const std::vector<std::string>& words) {
    const auto read = readArguments(words);
    return read.arguments || read.wantsHelp || read.wantsVersion ? "none" : read.cause;
  };
  EXPECT_EQ(causeOf({}), "no command is given (see --help)");
  EXPECT_EQ(causeOf({"upgrade"}), "unknown command: upgrade (see --help)");
  EXPECT_EQ(causeOf({"update"}), "update needs a bundle (see --help)");
  EXPECT_EQ(causeOf({"update", ""}), "the name of the bundle is empty");
  EXPECT_EQ(causeOf({"update", "/a", "/b"}), "more than one bundle is given: /b");
  EXPECT_EQ(causeOf({"update", "/a", "--to"}), "--to needs a path");
  EXPECT_EQ(causeOf({"remove", "/a", "--to", "/b"}), "unknown option of remove: --to (see --help)");
  EXPECT_EQ(causeOf({"status", "--yes"}), "unknown option of status: --yes (see --help)");
  for (const char* number : {"0", "1", "-5", "12a", "", "99999999999"})
    EXPECT_EQ(causeOf({"update", "/a", "--wait-pid", number}), "--wait-pid needs the number of a process");
  EXPECT_EQ(causeOf({"update", "/a", "--wait-pid"}), "--wait-pid needs the number of a process");
}

TEST(ArgumentsTest, AskForHelpAnywhereAndForTheVersionAlone) {
  EXPECT_TRUE(readArguments({"update", "--help"}).wantsHelp);
  EXPECT_TRUE(readArguments({"--version"}).wantsVersion);
  EXPECT_FALSE(readArguments({"status", "--version"}).wantsVersion);
}

TEST(ArgumentsTest, TakeAnAbsolutePathAsItIs) {
  EXPECT_EQ(readArguments({"status", "/no/such folder/App.app"}).arguments->bundle, "/no/such folder/App.app");
  EXPECT_EQ(readArguments({"status", "/no/such/App.app/"}).arguments->bundle, "/no/such/App.app");
}

TEST(ArgumentsTest, MakeARelativePathAbsolute) {
  const tests::TemporaryFolder folder;
  const auto before = std::filesystem::current_path();
  const auto here = std::filesystem::canonical(folder.path()).string();
  std::filesystem::create_directory(folder.path("inner"));
  std::filesystem::create_directory_symlink("elsewhere", folder.path("Link.app"));
  std::filesystem::current_path(folder.path("inner"));
  const auto bundleOf = [](const char* word) { return readArguments({"status", word}).arguments->bundle; };
  EXPECT_EQ(bundleOf("App.app"), here + "/inner/App.app");
  EXPECT_EQ(bundleOf("./App.app/"), here + "/inner/App.app");
  EXPECT_EQ(bundleOf("../App.app"), here + "/App.app");
  EXPECT_EQ(bundleOf("."), here + "/inner");
  // A link that is the bundle itself stays what it is: the run refuses it.
  EXPECT_EQ(bundleOf("../Link.app"), here + "/Link.app");
  std::filesystem::current_path(before);
}

TEST(ArgumentsTest, NameTheVersionToReturnTo) {
  EXPECT_EQ(readArguments({"rollback", "/App.app", "--version", "1.0"}).arguments->version, "1.0");
  EXPECT_FALSE(readArguments({"rollback", "/App.app"}).arguments->version);
  EXPECT_EQ(readArguments({"rollback", "/App.app", "--version"}).cause, "--version needs a version");
}

TEST(ArgumentsTest, NameTheJournalOfAHistory) {
  EXPECT_EQ(readArguments({"history", "--journal", "/mnt/log"}).arguments->journal, "/mnt/log");
  EXPECT_FALSE(readArguments({"status", "--journal", "/mnt/log"}).arguments);
}

TEST(ArgumentsTest, AreAllInTheHelp) {
  for (const char* word : {"install", "update", "remove", "rollback", "history", "verify", "status", "--journal", "--to",
                           "--wait-pid", "--no-relaunch", "--yes", "--json", "--help", "--version"})
    EXPECT_NE(cli::help.find(word), std::string_view::npos) << word;
}
