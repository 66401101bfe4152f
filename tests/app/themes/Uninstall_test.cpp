#include "protocol/ToolProtocol.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* sharesFile = "/Users/Shared/Kelto/Shares.plist";
constexpr const char* definition = "/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist";
constexpr const char* program = "/Library/Application Support/Kelto/KeltoLibraryServer";

class LibraryServer : public KMInstallerAppDelegateTest {
 protected:
  void SetUp() override { installLibraryServer(); }
};

}  // namespace

TEST_F(KMInstallerAppDelegateTest, UninstallMovesTheInstalledBundleToTheTrashAndTerminates) {
  launchUninstall();
  authorize();
  ASSERT_THAT(tool.commands(), ElementsAre(protocol::trashFileCommand));
  EXPECT_EQ(tool.jobs[0].at(protocol::filePathKey), installedBundle);
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_THAT(fake.workspace.launches, IsEmpty());
  EXPECT_EQ(fake.authorization.calls.back(), "free 2 8");
}

TEST_F(KMInstallerAppDelegateTest, ARemovalWithTheUpdateFlagKeepsTheRightsUntilTheBundleIsInTheTrash) {
  argument(protocol::isUpdateArgument, "YES");
  launchUninstall();
  tool.work = [this](const tests::FakeTool::Job&) { EXPECT_TRUE(delegate.authorized()); };
  authorize();
  ASSERT_THAT(tool.commands(), ElementsAre(protocol::trashFileCommand));
  EXPECT_EQ(tool.jobs[0].at(protocol::filePathKey), installedBundle);
  EXPECT_TRUE(inOrder("authorization.execute", "authorization.free 2 8"));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_THAT(fake.workspace.launches, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, UninstallOfNothingTerminatesWithoutAnAlert) {
  launchUninstall();
  fake.files.items.erase(installedBundle);
  authorize();
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, AFailedTrashNamesTheBundleWithoutItsExtension) {
  tool.results[protocol::trashFileCommand] = "no";
  launchUninstall();
  authorize();
  EXPECT_THAT(fake.application.alerts,
              ElementsAre(Alert{"text of <InstallerUnableToUninstallSubtitle>",
                                "text of <InstallerUnableToUninstallMessage_1> with App", "text of <OK>"}));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_EQ(fake.application.terminateSenders.size(), 1U);
}

TEST_F(KMInstallerAppDelegateTest, UninstallLeavesTheLibraryServerAlone) {
  installLibraryServer();
  launchUninstall();
  authorize();
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::trashFileCommand));
  EXPECT_THAT(fake.services.asked, IsEmpty());
}

TEST_F(LibraryServer, IsInstalledWhenItsFilesExistAndItsJobRuns) {
  EXPECT_TRUE(delegate.libraryServerInstalled());
  EXPECT_THAT(fake.services.asked, ElementsAre("com.kelto.KeltoLibraryServer"));
}

TEST_F(LibraryServer, TheFilesAreLookedForInOrderAndTheServiceManagerIsAskedLast) {
  EXPECT_TRUE(delegate.libraryServerInstalled());
  EXPECT_THAT(fake.files.existenceTests, ElementsAre(sharesFile, definition, program));
  EXPECT_EQ(fake.journal.calls().back(), "serviceManagement.copyJobDictionary com.kelto.KeltoLibraryServer");
}

TEST_F(LibraryServer, AMissingMarkerFileEndsTheProbing) {
  fake.files.items.erase(sharesFile);
  EXPECT_FALSE(delegate.libraryServerInstalled());
  EXPECT_THAT(fake.files.existenceTests, ElementsAre(sharesFile));
  EXPECT_THAT(fake.services.asked, IsEmpty());
}

TEST_F(LibraryServer, AMissingDefinitionMeansTheServiceManagerIsNotAsked) {
  fake.files.items.erase(definition);
  EXPECT_FALSE(delegate.libraryServerInstalled());
  EXPECT_THAT(fake.files.existenceTests, ElementsAre(sharesFile, definition));
  EXPECT_THAT(fake.services.asked, IsEmpty());
}

TEST_F(LibraryServer, AMissingProgramMeansTheServiceManagerIsNotAsked) {
  fake.files.items.erase(program);
  EXPECT_FALSE(delegate.libraryServerInstalled());
  EXPECT_THAT(fake.services.asked, IsEmpty());
}

TEST_F(LibraryServer, AJobThatIsNotLoadedCountsAsNotInstalled) {
  fake.services.jobs.clear();
  EXPECT_FALSE(delegate.libraryServerInstalled());
}

TEST_F(LibraryServer, AJobWithoutAProcessCountsAsNotInstalled) {
  fake.services.jobs["com.kelto.KeltoLibraryServer"].erase("PID");
  EXPECT_FALSE(delegate.libraryServerInstalled());
}

TEST_F(LibraryServer, TheTildeOfTheLocalLibraryFolderIsNotExpanded) {
  fake.files.homeFolder = "/srv";
  fake.files.searchPaths[{platform::SearchPathDirectory::library, platform::NSLocalDomainMask}] = {"/srv/Library"};
  EXPECT_FALSE(delegate.libraryServerInstalled());
  EXPECT_EQ(fake.files.existenceTests.at(1), "~/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist");
}

TEST_F(LibraryServer, TheUsersLibraryFolderIsNotLookedInto) {
  fake.files.searchPaths[{platform::SearchPathDirectory::library, platform::NSUserDomainMask}] = {"/srv/Library"};
  EXPECT_TRUE(delegate.libraryServerInstalled());
}

TEST_F(LibraryServer, AServiceManagerThatCannotBeAskedCountsAsNotInstalled) {
  fake.services.isReachable = false;
  EXPECT_FALSE(delegate.libraryServerInstalled());
}

TEST_F(LibraryServer, TheLocalLibraryFolderIsTheFirstOfTheSearch) {
  fake.files.searchPaths[{platform::SearchPathDirectory::library, platform::NSLocalDomainMask}] = {"/srv/Library", "/x"};
  fake.files.addFile("/srv/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist");
  fake.files.addFile("/srv/Library/Application Support/Kelto/KeltoLibraryServer");
  EXPECT_TRUE(delegate.libraryServerInstalled());
  EXPECT_EQ(fake.files.existenceTests.at(1), "/srv/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist");
}
