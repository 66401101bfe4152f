#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "privileged/KMAuthorization.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/FakeTool.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class KMAuthorizationFilesTest : public testing::Test {
 protected:
  platform::fake::FakePlatform fake;
  tests::FakeTool tool{fake};
  std::shared_ptr<KMAuthorization> session = KMAuthorization::init(fake.platform);
};

}  // namespace

TEST_F(KMAuthorizationFilesTest, ReplaceSendsItsArgumentsCrossed) {
  EXPECT_TRUE(session->replaceItemAtPath_withItemAtPath("/X", "/Y"));
  ASSERT_EQ(tool.jobs.size(), 1U);
  EXPECT_THAT(tool.jobs[0], Contains(Pair(protocol::commandKey, protocol::replaceItemCommand)));
  EXPECT_THAT(tool.jobs[0], Contains(Pair(protocol::sourcePathKey, "/Y")));
  EXPECT_THAT(tool.jobs[0], Contains(Pair(protocol::destinationPathKey, "/X")));
}

TEST_F(KMAuthorizationFilesTest, CopyAndMoveSendSourceThenDestination) {
  EXPECT_TRUE(session->copyItemAtPath_toPath("/X", "/Y"));
  EXPECT_TRUE(session->moveItemAtPath_toPath("/X", "/Y"));
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::copyFileCommand, protocol::moveFileCommand));
  for (const auto& job : tool.jobs) {
    EXPECT_EQ(job.at(protocol::sourcePathKey), "/X");
    EXPECT_EQ(job.at(protocol::destinationPathKey), "/Y");
  }
}

TEST_F(KMAuthorizationFilesTest, TrashAndRemoveSendTheFilePath) {
  EXPECT_TRUE(session->trashItemAtPath("/X"));
  EXPECT_TRUE(session->removeItemAtPath("/X"));
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::trashFileCommand, protocol::removeFileCommand));
  for (const auto& job : tool.jobs) EXPECT_EQ(job.at(protocol::filePathKey), "/X");
}

TEST_F(KMAuthorizationFilesTest, CopyWithoutDestinationSendsOnlyCommandAndSource) {
  session->copyItemAtPath_toPath("/X", std::nullopt);
  ASSERT_EQ(tool.jobs.size(), 1U);
  EXPECT_EQ(tool.jobs[0].size(), 3U);
  EXPECT_TRUE(tool.jobs[0].contains(protocol::sourcePathKey));
  EXPECT_TRUE(tool.jobs[0].contains(protocol::resultPathKey));
}

TEST_F(KMAuthorizationFilesTest, AMissingPathEndsTheInstructionThere) {
  session->copyItemAtPath_toPath(std::nullopt, "/Y");
  session->replaceItemAtPath_withItemAtPath("/X", std::nullopt);
  ASSERT_EQ(tool.jobs.size(), 2U);
  for (const auto& job : tool.jobs) EXPECT_EQ(job.size(), 2U);
}

TEST_F(KMAuthorizationFilesTest, FileOperationsReturnTheVerdict) {
  for (const char* command : {protocol::trashFileCommand, protocol::removeFileCommand, protocol::copyFileCommand,
                              protocol::moveFileCommand, protocol::replaceItemCommand})
    tool.results[command] = "no";
  EXPECT_FALSE(session->trashItemAtPath("/X"));
  EXPECT_FALSE(session->removeItemAtPath("/X"));
  EXPECT_FALSE(session->copyItemAtPath_toPath("/X", "/Y"));
  EXPECT_FALSE(session->moveItemAtPath_toPath("/X", "/Y"));
  EXPECT_FALSE(session->replaceItemAtPath_withItemAtPath("/X", "/Y"));
}

TEST_F(KMAuthorizationFilesTest, FileOperationsFailWithoutRunningTheToolOnceReleased) {
  session->releaseRights();
  EXPECT_FALSE(session->trashItemAtPath("/X"));
  EXPECT_FALSE(session->removeItemAtPath("/X"));
  EXPECT_FALSE(session->copyItemAtPath_toPath("/X", "/Y"));
  EXPECT_FALSE(session->moveItemAtPath_toPath("/X", "/Y"));
  EXPECT_FALSE(session->replaceItemAtPath_withItemAtPath("/X", "/Y"));
  EXPECT_THAT(tool.jobs, IsEmpty());
}
