#include "protocol/PolicyFile.h"

#include <gtest/gtest.h>

namespace {

using protocol::parsePolicy;
using protocol::Policy;

std::string causeOf(const std::string& text) {
  std::string cause;
  EXPECT_FALSE(parsePolicy(text, &cause)) << text;
  return cause;
}

TEST(PolicyFileTest, AnEmptyFileKeepsTheDefaults) {
  EXPECT_EQ(parsePolicy(""), Policy());
  EXPECT_EQ(parsePolicy("\n# nothing\n\t \n"), Policy());
  EXPECT_EQ(Policy().tools, std::vector<std::string>{protocol::packagedToolFolder});
}

TEST(PolicyFileTest, ReadsEveryKey) {
  const auto policy = parsePolicy(
      "tools = /opt/kelto\n  session-tools=/home/of apps/tools\t\nunsigned = ask\ndowngrades = allow\nkeep = 3\n"
      "maximum-entries = 5000");
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->tools, std::vector<std::string>{"/opt/kelto"});
  EXPECT_EQ(policy->sessionTools, std::vector<std::string>{"/home/of apps/tools"});
  EXPECT_EQ(policy->unsignedBundles, Policy::Unsigned::ask);
  EXPECT_TRUE(policy->areDowngradesAllowed);
  EXPECT_EQ(policy->keptVersions, 3U);
  EXPECT_EQ(policy->maximumEntries, 5000U);
}

TEST(PolicyFileTest, AListOfFoldersReplacesTheDefaultAndGrowsWithEachLine) {
  const auto policy = parsePolicy("tools = /a\ntools = /b\n");
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->tools, (std::vector<std::string>{"/a", "/b"}));
  EXPECT_EQ(policy->sessionTools, Policy().sessionTools);
}

TEST(PolicyFileTest, ListsLocationsOnlyWhenTheKeyIsThere) {
  EXPECT_FALSE(Policy().locations);
  const auto policy = parsePolicy("locations = /Applications\nlocations = /srv/apps\n");
  ASSERT_TRUE(policy && policy->locations);
  EXPECT_EQ(*policy->locations, (std::vector<std::string>{"/Applications", "/srv/apps"}));
  EXPECT_EQ(causeOf("locations = /Applications/../etc"), "line 1: not the plain absolute path of a folder");
  EXPECT_EQ(causeOf("locations = /"), "line 1: not the plain absolute path of a folder");
}

TEST(PolicyFileTest, RefusesTheWholeFileForOneWrongLineAndNamesIt) {
  EXPECT_EQ(causeOf("keep = 1\nunsinged = refuse\n"), "line 2: an unknown key");
  EXPECT_EQ(causeOf("keep = 1\nkeep = 1\n"), "line 2: a key that stands twice");
  EXPECT_EQ(causeOf("unsigned\n"), "line 1: a line without \"=\"");
  EXPECT_EQ(causeOf("# g\xC3\xBCltig\n"), "line 1: a character that is not printable ASCII");
  EXPECT_EQ(causeOf(std::string("keep = 1\0", 9)), "line 1: a character that is not printable ASCII");
}

TEST(PolicyFileTest, RefusesValuesThatAreNotOfTheKey) {
  for (const char* line : {"unsigned = yes", "unsigned =", "downgrades = ask", "keep = -1", "keep = 101", "keep = 1 2",
                           "keep = 99999999999999999999", "maximum-entries = 0", "maximum-entries = 0x10"}) {
    EXPECT_NE(causeOf(line), "");
  }
}

TEST(PolicyFileTest, RefusesFoldersThatAreNotPlainAbsolutePaths) {
  for (const char* path : {"", "/", "usr/lib", "/usr/", "/usr//lib", "/usr/./lib", "/usr/../lib", "/usr/lib/.."})
    EXPECT_EQ(causeOf(std::string("tools = ") + path), "line 1: not the plain absolute path of a folder") << path;
}

TEST(PolicyFileTest, RefusesWhatIsBeyondItsBounds) {
  std::string folders;
  for (std::size_t i = 0; i < protocol::maximumListedFolders; ++i) folders += "tools = /a\n";
  EXPECT_TRUE(parsePolicy(folders));
  EXPECT_EQ(causeOf(folders + "tools = /a"), "line 65: too many folders");
  EXPECT_TRUE(parsePolicy(std::string(protocol::maximumPolicyFileBytes, '\n')));
  EXPECT_EQ(causeOf(std::string(protocol::maximumPolicyFileBytes + 1, '\n')), "the file is too long");
}

TEST(PolicyFileTest, TheStrictestPolicyListsNoToolAndNoLocation) {
  EXPECT_EQ(protocol::strictestPolicy().locations, std::vector<std::string>());
  EXPECT_TRUE(protocol::strictestPolicy().tools.empty());
  EXPECT_TRUE(protocol::strictestPolicy().sessionTools.empty());
  EXPECT_EQ(protocol::strictestPolicy().unsignedBundles, Policy::Unsigned::refuse);
}

}  // namespace
