#include "platform/linux/UserDefaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "platform/fake/FakePlatform.h"
#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

using foundation::PropertyList::Array;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;
using platform::Linux::argumentDomain;
using platform::Linux::DefaultsFile;
using platform::Linux::UserDefaults;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* domain = "com.kelto.test";

class UserDefaultsTest : public testing::Test {
 protected:
  platform::Linux::UserDefaults open(const std::vector<const char*>& arguments = {}) {
    std::vector<const char*> all{"program"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return {static_cast<int>(all.size()), all.data(), domain, log};
  }

  void store(const std::string& contents) const {
    std::filesystem::create_directories(config);
    tests::writeFile(file, contents);
  }

  tests::TemporaryFolder folder;
  std::string config = folder.path("config");
  std::string file = folder.path("config/com.kelto.test.plist");
  tests::EnvironmentVariable configHome{"XDG_CONFIG_HOME", config};
  platform::fake::FakeSystemLog log;
};

Dictionary arguments(std::vector<const char*> list) {
  list.insert(list.begin(), "program");
  return argumentDomain(static_cast<int>(list.size()), list.data());
}

}  // namespace

// The argument domain.

TEST(ArgumentDomain, AKeyIsFollowedByItsValue) {
  EXPECT_EQ(arguments({"-SourcePath", "/tmp/New.app", "-IsUpdate", "YES"}),
            (Dictionary{{"SourcePath", "/tmp/New.app"}, {"IsUpdate", "YES"}}));
}

TEST(ArgumentDomain, ValuesStayTextWhateverTheyLookLike) {
  for (const char* value : {"{{1, 2}, {3, 4}}", "r: {{1, 2}, {3, 4}}", "(a, b)", "{a=b;}", "<00ff>", "42", "-5", "-.5", "",
                            "/a b/Kéltö \"x\" 'y' \\ $(z).app", "\xE9"})
    EXPECT_EQ(arguments({"-Key", value}), (Dictionary{{"Key", value}})) << value;
}

TEST(ArgumentDomain, AKeyWithoutValueIsLeftOut) {
  EXPECT_EQ(arguments({"-A"}), Dictionary());
  EXPECT_EQ(arguments({"-A", "-B", "b"}), (Dictionary{{"B", "b"}}));
  EXPECT_EQ(arguments({"-A", "a", "-B"}), (Dictionary{{"A", "a"}}));
}

TEST(ArgumentDomain, ArgumentsThatAreNotKeysAreSkipped) {
  EXPECT_EQ(arguments({"word", "-", "-5", "x", "-A", "a", "left"}), (Dictionary{{"A", "a"}}));
  EXPECT_EQ(argumentDomain(0, nullptr), Dictionary());
}

TEST(ArgumentDomain, TheLastOfTwoEqualKeysCounts) {
  EXPECT_EQ(arguments({"-A", "1", "-A", "2"}), (Dictionary{{"A", "2"}}));
}

TEST_F(UserDefaultsTest, TheFrameOfTheMainWindowComesBackAsText) {
  const auto defaults = open({"-MainFrame", "{{1, 2}, {3, 4}}"});
  EXPECT_EQ(defaults.stringForKey("MainFrame"), "{{1, 2}, {3, 4}}");
}

// The order of the domains.

TEST_F(UserDefaultsTest, ArgumentsComeBeforeWhatIsStoredAndThatBeforeWhatIsRegistered) {
  store("<plist><dict><key>a</key><string>stored</string><key>b</key><string>stored</string></dict></plist>");
  auto defaults = open({"-a", "argument"});
  defaults.registerDefaults({{"a", "registered"}, {"b", "registered"}, {"c", "registered"}});
  EXPECT_EQ(defaults.stringForKey("a"), "argument");
  EXPECT_EQ(defaults.stringForKey("b"), "stored");
  EXPECT_EQ(defaults.stringForKey("c"), "registered");
  EXPECT_EQ(defaults.stringForKey("d"), std::nullopt);
}

TEST_F(UserDefaultsTest, ASetValueDoesNotHideAnArgument) {
  auto defaults = open({"-a", "argument"});
  EXPECT_TRUE(defaults.setObject("a", "stored"));
  EXPECT_EQ(defaults.stringForKey("a"), "argument");
  EXPECT_EQ(open().stringForKey("a"), "stored");
}

// The stored domain.

TEST_F(UserDefaultsTest, ASetValueIsOnDiskForTheNextProgram) {
  const Value value = Dictionary{{"list", Array{1, 2.5, true, "é"}}};
  auto defaults = open();
  EXPECT_TRUE(defaults.setObject("a", value));
  EXPECT_EQ(defaults.objectForKey("a"), value);
  EXPECT_EQ(open().objectForKey("a"), value);
  EXPECT_TRUE(defaults.removeObject("a"));
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
  EXPECT_EQ(open().objectForKey("a"), std::nullopt);
}

TEST_F(UserDefaultsTest, RemovingWhatIsNotThereMakesNoFile) {
  EXPECT_TRUE(open().removeObject("a"));
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(UserDefaultsTest, LookingUpMakesNoFile) {
  EXPECT_EQ(open().objectForKey("a"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(config));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(UserDefaultsTest, AChangeByAnotherIsSeenAtTheNextLookUp) {
  auto reader = open();
  auto writer = open();
  EXPECT_EQ(reader.integerForKey("n"), 0);
  for (int n = 1; n <= 20; ++n) {
    ASSERT_TRUE(writer.setObject("n", n % 10));
    ASSERT_EQ(reader.integerForKey("n"), n % 10);
  }
  std::filesystem::remove(file);
  EXPECT_EQ(reader.objectForKey("n"), std::nullopt);
}

TEST_F(UserDefaultsTest, AChangeWithinTheFileIsSeen) {
  store("<plist><dict><key>a</key><integer>1</integer></dict></plist>");
  const auto defaults = open();
  EXPECT_EQ(defaults.integerForKey("a"), 1);
  store("<plist><dict><key>a</key><integer>200</integer></dict></plist>");
  EXPECT_EQ(defaults.integerForKey("a"), 200);
}

TEST_F(UserDefaultsTest, ABinaryFileIsRead) {
  using namespace std::string_literals;
  store("bplist00\xD1\x01\x02\x51\x61\x10\x05\x08\x0B\x0D"s + std::string(6, '\0') + "\x01\x01"s + std::string(7, '\0') +
        "\x03"s + std::string(8, '\0') + std::string(7, '\0') + "\x0F"s);
  EXPECT_EQ(open().integerForKey("a"), 5);
}

TEST_F(UserDefaultsTest, AFileThatCannotBeReadIsReportedOnceAndNeverReplaced) {
  store("<plist><dict><key>a</key>");
  auto defaults = open();
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
  EXPECT_EQ(defaults.objectForKey("b"), std::nullopt);
  EXPECT_THAT(log.lines, ElementsAre("NSUserDefaults: cannot read '" + file + "': line 1: the document ends early"));
  EXPECT_FALSE(defaults.setObject("a", 1));
  EXPECT_FALSE(defaults.removeObject("a"));
  EXPECT_EQ(tests::readFile(file), "<plist><dict><key>a</key>");
  EXPECT_THAT(log.lines, testing::Contains("NSUserDefaults: nothing was stored: cannot read '" + file +
                                           "': line 1: the document ends early"));
}

TEST_F(UserDefaultsTest, AFileOfAnotherShapeIsNeverReplaced) {
  store("<plist><array/></plist>");
  EXPECT_FALSE(open().setObject("a", 1));
  EXPECT_EQ(tests::readFile(file), "<plist><array/></plist>");
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("it is not a dictionary")));
}

TEST_F(UserDefaultsTest, AValueThatCouldNotBeReadBackIsNotStored) {
  auto defaults = open();
  ASSERT_TRUE(defaults.setObject("a", "before"));
  EXPECT_FALSE(defaults.setObject("b", "\xE9"));
  EXPECT_FALSE(defaults.setObject("b", "\x01"));
  Value deep = 1;
  for (int i = 0; i < 64; ++i) deep = Array{deep};
  EXPECT_FALSE(defaults.setObject("b", deep));
  EXPECT_EQ(open().stringForKey("a"), "before");
  EXPECT_THAT(log.lines, testing::Each(HasSubstr("the value cannot be stored")));
}

TEST_F(UserDefaultsTest, NothingIsLeftBesideTheFileButItsLock) {
  ASSERT_TRUE(open().setObject("a", 1));
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(config)) names.push_back(entry.path().filename());
  EXPECT_THAT(names, testing::UnorderedElementsAre("com.kelto.test.plist", "com.kelto.test.plist.lock"));
}

TEST_F(UserDefaultsTest, FilesOfAKilledWriterDoNotBlockTheNextOne) {
  store("<plist><dict><key>a</key><true/></dict></plist>");
  tests::writeFile(file + ".new", "half");
  tests::writeFile(file + ".lock", "");
  EXPECT_TRUE(open().setObject("b", true));
  EXPECT_TRUE(open().boolForKey("a"));
  EXPECT_TRUE(open().boolForKey("b"));
}

TEST_F(UserDefaultsTest, ANewFileIsTheUsersOwnAndAnOldOneKeepsItsPermissions) {
  const auto permissions = [&] {
    struct stat status {};
    ::stat(file.c_str(), &status);
    return status.st_mode & 0777;
  };
  ASSERT_TRUE(open().setObject("a", 1));
  EXPECT_EQ(permissions(), 0600U);
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  ASSERT_TRUE(open().setObject("a", 2));
  EXPECT_EQ(permissions(), 0644U);
}

TEST_F(UserDefaultsTest, ALinkStaysALink) {
  std::filesystem::create_directories(config);
  tests::writeFile(folder.path("real.plist"), "<plist><dict/></plist>");
  std::filesystem::create_symlink(folder.path("real.plist"), file);
  ASSERT_TRUE(open().setObject("a", 1));
  EXPECT_TRUE(std::filesystem::is_symlink(file));
  EXPECT_THAT(tests::readFile(folder.path("real.plist")), HasSubstr("<integer>1</integer>"));
}

TEST_F(UserDefaultsTest, AFolderThatCannotBeMadeIsReported) {
  tests::writeFile(config, "a file in the way");
  EXPECT_FALSE(open().setObject("a", 1));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("nothing was stored: cannot")));
}

TEST_F(UserDefaultsTest, WithoutAUsableDomainArgumentsStillCount) {
  for (const char* name : {"", ".hidden", "../other", "a/b"}) {
    const char* list[] = {"program", "-a", "1"};
    platform::Linux::UserDefaults defaults(3, list, name, log);
    EXPECT_EQ(defaults.integerForKey("a"), 1) << name;
    EXPECT_FALSE(defaults.setObject("b", 1)) << name;
  }
  EXPECT_THAT(log.lines, testing::Each(HasSubstr("the application has no domain of its own")));
}

TEST_F(UserDefaultsTest, ThreadsThatWriteAtOnceLoseNothing) {
  auto defaults = open();
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([&defaults, thread] {
        for (int i = 0; i < 10; ++i) defaults.setObject(std::to_string(thread * 10 + i), i);
      });
  }
  for (int key = 0; key < 40; ++key) EXPECT_EQ(defaults.integerForKey(std::to_string(key)), key % 10) << key;
}

TEST(ConfigurationFolder, IsTheNamedOneWhenThatIsAbsolute) {
  const tests::EnvironmentVariable home("HOME", "/home/someone");
  const tests::EnvironmentVariable named("XDG_CONFIG_HOME", "/elsewhere");
  EXPECT_EQ(platform::Linux::configurationFolder(), "/elsewhere");
  const tests::EnvironmentVariable relative("XDG_CONFIG_HOME", "relative");
  EXPECT_EQ(platform::Linux::configurationFolder(), "/home/someone/.config");
  const tests::EnvironmentVariable absent("XDG_CONFIG_HOME", std::nullopt);
  EXPECT_EQ(platform::Linux::configurationFolder(), "/home/someone/.config");
}
