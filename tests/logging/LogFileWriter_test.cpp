#include "logging/LogFileWriter.h"

#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "tests/logging/ForwardingStorage.h"
#include "tests/support/TemporaryFolder.h"

namespace {

class Writer : public testing::Test {
 protected:
  void open(const std::string& path) {
    if (!disk.fileExists(path)) disk.createFile(path);
    writer.open(disk.openFile(path), path);
  }
  // With room for so many bytes only, and then there is a lot again.
  void appendAndClose(std::string_view text, std::size_t room) {
    disk.room = room;
    writer.append(text);
    writer.close();
    disk.room = SIZE_MAX;
  }

  const tests::TemporaryFolder folder;
  const std::string path = folder.path("log");
  const std::string other = folder.path("other");
  tests::SmallDisk disk;
  platform::fake::FakeSystemLog systemLog;
  LogFileWriter writer{nullptr, systemLog};
};

}  // namespace

TEST_F(Writer, GoesOnWithAHalfLineOfItsOwnInTheFileThatHasIt) {
  open(path);
  appendAndClose("in two halves", 5);
  open(path);
  writer.write();
  EXPECT_EQ(tests::readFile(path), "in two halves\n");
}

TEST_F(Writer, EndsTheHalfLineOfSomebodyElseFirst) {
  tests::writeFile(path, "half");
  open(path);
  writer.append("whole");
  writer.write();
  EXPECT_EQ(tests::readFile(path), "half\nwhole\n");
}

TEST_F(Writer, EndsTheHalfLineOfSomebodyElseBeforeLinesThatWait) {
  tests::writeFile(other, "half");
  open(path);
  appendAndClose("waiting", 0);
  open(other);
  writer.write();
  EXPECT_EQ(tests::readFile(other), "half\nwaiting\n");
}

TEST_F(Writer, EndsTheHalfLineOfSomebodyElseOnADiskThatIsStillFull) {
  tests::writeFile(other, "half");
  open(path);
  appendAndClose("waiting", 0);
  disk.room = 0;
  for (int i = 0; i < 3; ++i) {
    open(other);
    writer.close();
  }
  disk.room = SIZE_MAX;
  open(other);
  writer.write();
  EXPECT_EQ(tests::readFile(other), "half\nwaiting\n");
}

TEST_F(Writer, EndsAHalfLineThatSomebodyElseWroteBehindItsOwn) {
  open(path);
  appendAndClose("in two halves", 5);
  tests::writeFile(path, tests::readFile(path) + "\nhalf");
  open(path);
  writer.write();
  EXPECT_EQ(tests::readFile(path), "in tw\nhalf\no halves\n");
}

TEST_F(Writer, EndsTheHalfLineOfSomebodyElseBeforeLinesOutOfADeletedFile) {
  tests::writeFile(other, "half");
  open(path);
  writer.append("salvaged");
  writer.write();
  ASSERT_EQ(std::remove(path.c_str()), 0);
  EXPECT_EQ(writer.verify(path), LogFileWriter::Whereabouts::gone);
  open(other);
  writer.write();
  EXPECT_EQ(tests::readFile(other), "half\nsalvaged\n");
}
