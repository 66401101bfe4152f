#include "platform/linux/LastRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/fake/FakePlatform.h"
#include "protocol/LastRun.h"
#include "protocol/LaunchArguments.h"
#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

using foundation::PropertyList::Dictionary;

class LastRunTest : public testing::Test {
 protected:
  LastRunTest() {
    fake.defaults.values.insert_or_assign(protocol::trashPathArgument, "/Apps/Kelto.app");
    fake.defaults.values.insert_or_assign(protocol::sourcePathArgument, "/tmp/Kelto.app");
    addBundle("/Apps/Kelto.app", "1.0");
    addBundle("/tmp/Kelto.app", "2.0");
  }
  void addBundle(const std::string& path, const char* version) {
    auto bundle = std::make_shared<fake::FakeBundle>();
    bundle->info.emplace("CFBundleShortVersionString", version);
    fake.bundles.others[path] = bundle;
  }
  [[nodiscard]] LastRun run() { return LastRun(fake.defaults, fake.bundles, fake.systemLog); }
  [[nodiscard]] Dictionary record() const {
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    const auto value = foundation::PropertyList::parse(bytes.str());
    return value ? *value->as<Dictionary>() : Dictionary();
  }
  [[nodiscard]] std::string text(const char* key) const {
    const auto all = record();
    const auto value = all.find(key);
    return value == all.end() ? "none" : *value->second.as<std::string>();
  }

  tests::TemporaryFolder folder;
  tests::EnvironmentVariable state{"XDG_STATE_HOME", folder.path("state")};
  const std::string path = folder.path("state/kelto/last-run.plist");
  fake::FakePlatform fake;
};

TEST_F(LastRunTest, SaysWhatFailedAndWhy) {
  run().write(Failure{Ending::stillRunning, "quit Kelto", "/Apps/Kelto.app", "1 copy still runs"});
  EXPECT_EQ(text(protocol::lastRunKey::mode), "install");
  EXPECT_EQ(text(protocol::lastRunKey::bundle), "/Apps/Kelto.app");
  EXPECT_EQ(text(protocol::lastRunKey::oldVersion), "1.0");
  EXPECT_EQ(text(protocol::lastRunKey::newVersion), "2.0");
  EXPECT_EQ(text(protocol::lastRunKey::step), "quit Kelto");
  EXPECT_EQ(text(protocol::lastRunKey::path), "/Apps/Kelto.app");
  EXPECT_EQ(text(protocol::lastRunKey::cause), "1 copy still runs");
  EXPECT_EQ(*record().at(protocol::lastRunKey::status).as<std::int64_t>(), 5);
  EXPECT_NE(record().at(protocol::lastRunKey::time).as<foundation::Date>(), nullptr);
}

TEST_F(LastRunTest, OfARemovalHasNoNewVersionAndOfASuccessNoCause) {
  fake.defaults.values.erase(protocol::sourcePathArgument);
  run().write(std::nullopt);
  EXPECT_EQ(text(protocol::lastRunKey::mode), "remove");
  EXPECT_EQ(text(protocol::lastRunKey::newVersion), "none");
  EXPECT_EQ(text(protocol::lastRunKey::cause), "none");
  EXPECT_EQ(*record().at(protocol::lastRunKey::status).as<std::int64_t>(), 0);
}

TEST_F(LastRunTest, IsForThisUserOnlyAndLeavesNothingBeside) {
  const auto record = run();
  record.write(Failure{Ending::failed, "a", "b", "c"});
  record.write(std::nullopt);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0600U);
  ASSERT_EQ(::stat(folder.path("state/kelto").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & ALLPERMS, 0700U);
  const std::filesystem::directory_iterator files(folder.path("state/kelto"));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(LastRunTest, IsRemovedWhenTheNextRunBegins) {
  run().write(std::nullopt);
  const auto next = run();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(LastRunTest, ThatCannotBeWrittenIsALineInTheLog) {
  std::ofstream(folder.path("state")) << "in the way";
  run().write(std::nullopt);
  EXPECT_THAT(fake.systemLog.lines, testing::ElementsAre(testing::HasSubstr(path)));
}

}  // namespace
}  // namespace platform::Linux
