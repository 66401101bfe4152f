// Log files whose dates are out of order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDLogFileManager.h"
#include "platform/fake/FakePlatform.h"

using foundation::Seconds;

namespace {

class ManagerOrder : public testing::Test {
 protected:
  platform::fake::FakeLogStorage& files() { return fake.logging.storage; }
  foundation::Date dateIn(double seconds) { return foundation::dateByAdding(fake.clock.now(), Seconds(seconds)); }

  platform::fake::FakePlatform fake;
  std::shared_ptr<DDLogFileManagerDefault> manager = std::make_shared<DDLogFileManagerDefault>(fake.platform, "/logs");
};

}  // namespace

TEST_F(ManagerOrder, ANewFileIsNotPrunedThoughOthersAreFromTheFuture) {
  for (const char c : {'A', 'B', 'C', 'D', 'E', 'F', '0'}) {
    const std::string path = "/logs/log-" + std::string(6, c) + ".txt";
    files().addFile(path, "x", dateIn(1000 + c));
    files().setMark(path, "plamaiskre.log.archived");
  }
  const std::string path = manager->createNewLogFile();
  EXPECT_TRUE(files().fileExists(path));
  EXPECT_EQ(manager->unsortedLogFilePaths().size(), 6);
}

TEST_F(ManagerOrder, TheOrderByModificationIsAnotherThanTheOneByCreation) {
  files().addFile("/logs/log-AAAAAA.txt", "x", dateIn(-20));
  files().addFile("/logs/log-BBBBBB.txt", "x", dateIn(-10));
  int error = 0;
  files().openFile("/logs/log-AAAAAA.txt")->append("y", error);
  DDLogFileInfo first(fake.platform, "/logs/log-AAAAAA.txt");
  DDLogFileInfo second(fake.platform, "/logs/log-BBBBBB.txt");
  EXPECT_GT(first.reverseCompareByCreationDate(second), 0);
  EXPECT_LT(first.reverseCompareByModificationDate(second), 0);
  EXPECT_GT(second.reverseCompareByModificationDate(first), 0);
  EXPECT_EQ(first.reverseCompareByModificationDate(first), 0);
}
