#include "cli/Status.h"

#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "protocol/LastRun.h"
#include "tests/support/Environment.h"

using foundation::PropertyList::Value;

namespace {

class StatusTest : public testing::Test {
 protected:
  platform::fake::FakePlatform fake;
  tests::EnvironmentVariable state{"XDG_STATE_HOME", "/state"};
};

}  // namespace

TEST_F(StatusTest, OfABundleHasItsVersionAndItsRunningCopies) {
  auto bundle = std::make_shared<platform::fake::FakeBundle>();
  bundle->info = {{"CFBundleIdentifier", "com.acme.app"},
                  {"CFBundleName", "App"},
                  {"CFBundleShortVersionString", "2.1"},
                  {"CFBundleVersion", "2100"}};
  fake.bundles.others["/Applications/App.app"] = bundle;
  fake.workspace.running["com.acme.app"].push_back(std::make_shared<platform::fake::FakeRunningApplication>());
  const auto status = cli::statusOfBundle("/Applications/App.app", fake.platform);
  EXPECT_EQ(status.at("identifier"), Value("com.acme.app"));
  EXPECT_EQ(status.at("name"), Value("App"));
  EXPECT_EQ(status.at("version"), Value("2.1"));
  EXPECT_EQ(status.at("runningCopies"), Value(1));
}

TEST_F(StatusTest, OfABundleThatIsNotThereIsEmpty) {
  EXPECT_TRUE(cli::statusOfBundle("/Applications/App.app", fake.platform).empty());
}

TEST_F(StatusTest, OfTheLastRunIsItsRecord) {
  fake.files.addFile(protocol::lastRunPath());
  fake.files.items.at(protocol::lastRunPath()).contents = foundation::PropertyList::serializeXML(
      cli::Dictionary{{protocol::lastRunKey::mode, "update"}, {protocol::lastRunKey::status, 5}, {"Unknown", "left out"}});
  EXPECT_EQ(cli::statusOfLastRun(fake.files), (cli::Dictionary{{"mode", "update"}, {"status", 5}}));
}

TEST_F(StatusTest, OfTheLastRunIsEmptyWithoutARecordOrWithABrokenOne) {
  EXPECT_TRUE(cli::statusOfLastRun(fake.files).empty());
  fake.files.addFile(protocol::lastRunPath());
  fake.files.items.at(protocol::lastRunPath()).contents = "broken";
  EXPECT_TRUE(cli::statusOfLastRun(fake.files).empty());
}

TEST_F(StatusTest, OfThePolicyHasEachRuleAndWhyTheFileIsRefused) {
  protocol::Policy policy;
  policy.unsignedBundles = protocol::Policy::Unsigned::ask;
  policy.areDowngradesAllowed = true;
  const auto status = cli::statusOfPolicy(policy, "");
  EXPECT_EQ(status.at("unsigned"), Value("ask"));
  EXPECT_EQ(status.at("keep"), Value(0));
  EXPECT_EQ(status.at("downgrades"), Value("allow"));
  EXPECT_EQ(status.at("tools"), Value(foundation::PropertyList::Array{protocol::packagedToolFolder}));
  EXPECT_FALSE(status.contains("refusedFile"));
  EXPECT_EQ(cli::statusOfPolicy(protocol::strictestPolicy(), "others can write it").at("refusedFile"),
            Value("others can write it"));
}
