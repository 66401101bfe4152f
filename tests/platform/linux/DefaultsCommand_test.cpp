// The program `defaults`, and what it and another program see of each other.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/UserDefaults.h"
#include "tests/support/CommandLine.h"
#include "tests/support/Environment.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

using foundation::PropertyList::Array;
using foundation::PropertyList::Value;
using platform::Linux::UserDefaults;
using testing::IsEmpty;
using tests::Outcome;

namespace {

constexpr const char* controller = "com.kelto.macController";

class DefaultsCommand : public testing::Test {
 protected:
  static Outcome run(const std::string& arguments) {
    return tests::runCommandLine(KELTO_BIN_DIR "/defaults " + arguments + " 2>&1");
  }

  platform::Linux::UserDefaults open(const char* domain = controller) {
    const char* list[] = {"program"};
    return {1, list, domain, log};
  }

  tests::TemporaryFolder folder;
  std::string file = folder.path("com.kelto.macController.plist");
  tests::EnvironmentVariable configHome{"XDG_CONFIG_HOME", folder.path()};
  platform::fake::FakeSystemLog log;
};

}  // namespace

TEST_F(DefaultsCommand, TheVersionOfTheServerIsStoredAsTextAndReadsAsANumber) {
  const auto defaults = open();
  EXPECT_EQ(defaults.objectForKey("LibraryServerVersion"), std::nullopt);
  EXPECT_EQ(run("write com.kelto.macController LibraryServerVersion 2"), (Outcome{0, ""}));
  EXPECT_EQ(defaults.objectForKey("LibraryServerVersion"), Value("2"));
  EXPECT_EQ(defaults.integerForKey("LibraryServerVersion"), 2);
}

TEST_F(DefaultsCommand, ReadsWhatAnotherProgramStored) {
  auto defaults = open();
  ASSERT_TRUE(defaults.setObject("a", true));
  ASSERT_TRUE(defaults.setObject("b", "x y"));
  EXPECT_EQ(run("read com.kelto.macController a"), (Outcome{0, "1\n"}));
  EXPECT_EQ(run("read com.kelto.macController b"), (Outcome{0, "x y\n"}));
  EXPECT_EQ(run("read com.kelto.macController"), (Outcome{0, "{\n    a = 1;\n    b = \"x y\";\n}\n"}));
}

TEST_F(DefaultsCommand, ReadsEveryDomain) {
  run("write one a 1");
  run("write two b 2");
  EXPECT_EQ(run("read"), (Outcome{0, "{\n    one = {\n        a = 1;\n    };\n    two = {\n        b = 2;\n    };\n}\n"}));
}

TEST_F(DefaultsCommand, WritesEveryType) {
  const auto defaults = open();
  const auto written = [&](const std::string& value) {
    EXPECT_EQ(run("write com.kelto.macController k " + value), (Outcome{0, ""})) << value;
    return defaults.objectForKey("k");
  };
  EXPECT_EQ(written("word"), Value("word"));
  EXPECT_EQ(written("'two words'"), Value("two words"));
  EXPECT_EQ(written("-5"), Value("-5"));
  EXPECT_EQ(written("''"), Value(""));
  EXPECT_EQ(written("'(a, b)'"), Value("(a, b)"));
  EXPECT_EQ(written("-string 5"), Value("5"));
  EXPECT_EQ(written("-string -int"), Value("-int"));
  EXPECT_EQ(written("-int -5"), Value(-5));
  EXPECT_EQ(written("-float 2.5"), Value(2.5));
  for (const char* yes : {"yes", "YES", "true", "1"}) EXPECT_EQ(written("-bool " + std::string(yes)), Value(true));
  for (const char* no : {"no", "False", "0"}) EXPECT_EQ(written("-bool " + std::string(no)), Value(false));
  EXPECT_EQ(written("-array de 'pt BR'"), Value(Array{"de", "pt BR"}));
}

TEST_F(DefaultsCommand, RefusesValuesThatAreNotOfTheirType) {
  EXPECT_EQ(run("write d k -int 5x"), (Outcome{1, "defaults: '5x' is not a value of the type int\n"}));
  EXPECT_EQ(run("write d k -int 99999999999999999999").status, 1);
  EXPECT_EQ(run("write d k -float x").status, 1);
  EXPECT_EQ(run("write d k -bool maybe").status, 1);
  EXPECT_THAT(run("read d").output, testing::HasSubstr("does not exist"));
}

TEST_F(DefaultsCommand, DeletesAKeyOrAWholeDomain) {
  run("write com.kelto.macController a 1");
  run("write com.kelto.macController b 2");
  const auto defaults = open();
  EXPECT_EQ(run("delete com.kelto.macController a"), (Outcome{0, ""}));
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
  EXPECT_EQ(defaults.integerForKey("b"), 2);
  EXPECT_EQ(run("delete com.kelto.macController"), (Outcome{0, ""}));
  EXPECT_EQ(defaults.objectForKey("b"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(DefaultsCommand, NamesAMissingDomainOrKey) {
  run("write here k 1");
  EXPECT_EQ(run("read nowhere"), (Outcome{1, "defaults: the domain 'nowhere' does not exist\n"}));
  EXPECT_EQ(run("read here x"), (Outcome{1, "defaults: the domain 'here' has no value for 'x'\n"}));
  EXPECT_EQ(run("delete nowhere"), (Outcome{1, "defaults: the domain 'nowhere' does not exist\n"}));
  EXPECT_EQ(run("delete nowhere x"), (Outcome{1, "defaults: the domain 'nowhere' does not exist\n"}));
  EXPECT_EQ(run("delete here x"), (Outcome{1, "defaults: the domain 'here' has no value for 'x'\n"}));
}

TEST_F(DefaultsCommand, OtherArgumentsAreAnsweredWithTheUsage) {
  for (const char* arguments : {"", "frobnicate", "write", "write d", "write d k", "write d k a b", "write d k -date x",
                                "write d k -int", "read d k x", "delete", "delete d k x"}) {
    const auto outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1) << arguments;
    EXPECT_THAT(outcome.output, testing::StartsWith("usage: ")) << arguments;
  }
}

TEST_F(DefaultsCommand, ADomainCannotLeadOutOfTheFolder) {
  for (const char* name : {"../x", "/x", "''", ".x"})
    EXPECT_EQ(run("write " + std::string(name) + " k v").status, 1) << name;
  EXPECT_FALSE(std::filesystem::exists(folder.path() + "/../x.plist"));
}

TEST_F(DefaultsCommand, AFileThatCannotBeReadIsNotTouched) {
  tests::writeFile(file, "not a list");
  for (const char* arguments :
       {"read com.kelto.macController", "write com.kelto.macController a 1", "delete com.kelto.macController a"})
    EXPECT_EQ(run(arguments),
              (Outcome{1, "defaults: cannot read '" + file + "': line 1: text stands where an element should begin\n"}))
        << arguments;
  EXPECT_EQ(tests::readFile(file), "not a list");
}

TEST_F(DefaultsCommand, ContainersAndDataArePrintedForPeople) {
  auto defaults = open();
  ASSERT_TRUE(
      defaults.setObject("list", Array{1, "a b", "\"\\", Array{}, foundation::PropertyList::Data{std::byte{0xAB}}}));
  EXPECT_EQ(run("read com.kelto.macController list").output,
            "(\n    1,\n    \"a b\",\n    \"\\\"\\\\\",\n    (\n    ),\n    <ab>\n)\n");
}

TEST_F(DefaultsCommand, ProgramsThatWriteAtOnceLoseNothing) {
  constexpr int writers = 3;
  constexpr int keys = 15;
  const auto writeMany = [](int writer) {
    const std::string one =
        KELTO_BIN_DIR "/defaults write com.kelto.macController w" + std::to_string(writer) + "_$i $i || exit 1; ";
    return tests::runCommandLine("i=0; while [ $i -lt " + std::to_string(keys) + " ]; do " + one + "i=$((i+1)); done")
        .status;
  };
  std::array<int, writers> statuses{};
  auto defaults = open();
  {
    std::vector<std::jthread> threads;
    for (int writer = 0; writer < writers; ++writer)
      threads.emplace_back([&, writer] { statuses[writer] = writeMany(writer); });
    for (int i = 0; i < keys; ++i) EXPECT_TRUE(defaults.setObject("own_" + std::to_string(i), i));
  }
  EXPECT_THAT(statuses, testing::Each(0));
  for (int i = 0; i < keys; ++i) {
    EXPECT_EQ(defaults.integerForKey("own_" + std::to_string(i)), i);
    for (int writer = 0; writer < writers; ++writer)
      EXPECT_EQ(defaults.objectForKey("w" + std::to_string(writer) + "_" + std::to_string(i)), Value(std::to_string(i)));
  }
}

TEST_F(DefaultsCommand, AReaderNeverSeesHalfAChange) {
  run("write com.kelto.macController n 0");
  const auto defaults = open();
  std::atomic<bool> isDone = false;
  std::jthread writer([&] {
    tests::runCommandLine("i=0; while [ $i -lt 20 ]; do i=$((i+1)); " KELTO_BIN_DIR
                          "/defaults write com.kelto.macController n $i; done");
    isDone = true;
  });
  std::int64_t last = 0;
  while (!isDone) {
    const auto value = defaults.objectForKey("n");
    ASSERT_TRUE(value);
    ASSERT_GE(defaults.integerForKey("n"), last);
    last = defaults.integerForKey("n");
  }
  EXPECT_EQ(defaults.integerForKey("n"), 20);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(DefaultsCommand, AWriterWaitsForTheOneBeforeIt) {
  const posix::Descriptor lock(::open((file + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  Outcome outcome;
  std::jthread writer([&] { outcome = run("write com.kelto.macController a 1"); });
  // The writer has come to the lock when somebody else has that file open.
  const auto isWaiting = [&] {
    return !tests::runCommandLine("find /proc/[0-9]*/fd -lname '" + file + ".lock' -not -path '/proc/" +
                                  std::to_string(::getpid()) + "/*' 2>/dev/null")
                .output.empty();
  };
  EXPECT_TRUE(tests::eventually(isWaiting));
  EXPECT_FALSE(std::filesystem::exists(file));
  ASSERT_EQ(::flock(lock.get(), LOCK_UN), 0);
  writer.join();
  EXPECT_EQ(outcome, (Outcome{0, ""}));
  EXPECT_TRUE(std::filesystem::exists(file));
}
