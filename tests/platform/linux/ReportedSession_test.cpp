#include "platform/linux/ReportedSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/fake/FakePlatform.h"
#include "protocol/LaunchArguments.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReportedSessionTest : public testing::Test {
 protected:
  ReportedSessionTest() {
    std::filesystem::create_directory(installed);
    fake.defaults.values.insert_or_assign(protocol::trashPathArgument, installed);
    fake.defaults.values.insert_or_assign(protocol::sourcePathArgument, "/tmp/Kelto 2.app");
    addBundle("/tmp/Kelto 2.app", "com.kelto.Kelto", "2");
    fake.workspace.applications[place] = "com.kelto.Kelto";
  }
  void addBundle(const std::string& path, const char* identifier, const char* version) {
    auto bundle = std::make_shared<fake::FakeBundle>();
    bundle->info.emplace("CFBundleIdentifier", identifier);
    bundle->info.emplace("CFBundleVersion", version);
    fake.bundles.others[path] = bundle;
  }
  bool launch() {
    const auto expected = newBundle(fake.defaults, fake.bundles);
    return ReportedWorkspace(fake.workspace, fake.bundles, expected, fake.platform.report)
        .launchApplication(place, 0, nullptr);
  }

  tests::TemporaryFolder folder;
  const std::string installed = folder.path("Kelto.app");
  const std::string place = folder.path("Kelto 2.app");
  fake::FakePlatform fake;
};

TEST_F(ReportedSessionTest, LaunchesTheNewBundle) {
  addBundle(place, "com.kelto.Kelto", "2");
  EXPECT_TRUE(launch());
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(ReportedSessionTest, LaunchesNothingElseThatIsInItsPlace) {
  for (const auto& [identifier, version] : {std::pair("com.kelto.Kelto", "1"), std::pair("com.kelto.Other", "2")}) {
    fake.systemLog.lines.clear();
    addBundle(place, identifier, version);
    EXPECT_FALSE(launch());
    EXPECT_THAT(fake.workspace.launches, IsEmpty());
    EXPECT_THAT(fake.systemLog.lines, testing::Each(HasSubstr("and not the new bundle, com.kelto.Kelto 2")));
  }
  EXPECT_EQ(fake.platform.report.ending(), Ending::failed);
}

TEST_F(ReportedSessionTest, DoesNotTakeAnotherItemForTheNewBundle) {
  const auto expected = newBundle(fake.defaults, fake.bundles);
  const CheckedFiles files(expected);
  EXPECT_FALSE(files.fileExistsAtPath(place));
  std::filesystem::create_directory(place);
  EXPECT_FALSE(files.fileExistsAtPath(place)) << "the new bundle still has the installed one's name";
  EXPECT_TRUE(files.fileExistsAtPath(installed));
  std::filesystem::remove(installed);
  EXPECT_TRUE(files.fileExistsAtPath(place));
}

}  // namespace
}  // namespace platform::Linux
