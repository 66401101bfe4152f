#pragma once
// The contract of LogStorage and LogFile.
//
// A World has: `storage()`; `path(name)`, in a folder that exists and is empty at first; `unlink(path)`, as another program
// would.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/LoggingHost.h"

namespace tests::contracts {

template <class World>
class LogStorageContract : public testing::Test {
 protected:
  platform::LogStorage& storage() { return world.storage(); }
  std::string path(const std::string& name) { return world.path(name); }
  // An open file with that text.
  std::unique_ptr<platform::LogFile> written(const std::string& name, const std::string& text) {
    EXPECT_TRUE(storage().createFile(path(name)));
    auto file = storage().openFile(path(name));
    int error = 0;
    EXPECT_EQ(file->append(text, error), text.size());
    return file;
  }

  World world;
  platform::Error error;
};

TYPED_TEST_SUITE_P(LogStorageContract);

TYPED_TEST_P(LogStorageContract, AFileIsMadeEmptyAndOnlyOnce) {
  EXPECT_FALSE(this->storage().fileExists(this->path("log")));
  EXPECT_TRUE(this->storage().createFile(this->path("log")));
  EXPECT_TRUE(this->storage().fileExists(this->path("log")));
  EXPECT_EQ(this->storage().attributesOfFile(this->path("log"))->size, 0U);
  EXPECT_FALSE(this->storage().createFile(this->path("log")));
  EXPECT_FALSE(this->storage().createFile(this->path("missing/log")));
}

TYPED_TEST_P(LogStorageContract, AFolderIsMadeWithThoseAboveItAndAnExistingOneIsSuccess) {
  EXPECT_TRUE(this->storage().createDirectory(this->path("a/b"), this->error));
  EXPECT_TRUE(this->storage().fileExists(this->path("a")));
  EXPECT_TRUE(this->storage().fileExists(this->path("a/b")));
  EXPECT_TRUE(this->storage().createDirectory(this->path("a/b"), this->error));
  EXPECT_TRUE(this->storage().createFile(this->path("a/b/log")));
}

TYPED_TEST_P(LogStorageContract, AFileInTheWayOfAFolderIsAnError) {
  this->storage().createFile(this->path("log"));
  EXPECT_FALSE(this->storage().createDirectory(this->path("log"), this->error));
  EXPECT_NE(this->error.code, 0);
  EXPECT_NE(this->error.description, "");
}

TYPED_TEST_P(LogStorageContract, AFolderNamesAllItsEntries) {
  this->storage().createFile(this->path("b"));
  this->storage().createFile(this->path("a"));
  this->storage().createDirectory(this->path("folder"), this->error);
  this->storage().createFile(this->path("folder/inner"));
  EXPECT_THAT(this->storage().namesInDirectory(this->path("")), testing::UnorderedElementsAre("a", "b", "folder"));
  EXPECT_THAT(this->storage().namesInDirectory(this->path("missing")), testing::IsEmpty());
}

TYPED_TEST_P(LogStorageContract, AMissingFileHasNoAttributesAndCannotBeOpened) {
  EXPECT_EQ(this->storage().attributesOfFile(this->path("missing")), std::nullopt);
  EXPECT_EQ(this->storage().openFile(this->path("missing")), nullptr);
}

TYPED_TEST_P(LogStorageContract, AFolderCannotBeOpened) {
  this->storage().createDirectory(this->path("folder"), this->error);
  EXPECT_EQ(this->storage().openFile(this->path("folder")), nullptr);
}

TYPED_TEST_P(LogStorageContract, BytesAreAppendedAtTheEndByAllWhoHaveTheFileOpen) {
  const auto first = this->written("log", "one ");
  const auto second = this->storage().openFile(this->path("log"));
  int error = 0;
  EXPECT_EQ(second->append("two ", error), 4U);
  EXPECT_EQ(first->append("three", error), 5U);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(first->size(), 13U);
  EXPECT_EQ(second->contentsFrom(0), "one two three");
  EXPECT_EQ(second->contentsFrom(8), "three");
  EXPECT_EQ(second->contentsFrom(100), "");
  EXPECT_TRUE(first->synchronize());
  EXPECT_EQ(this->storage().attributesOfFile(this->path("log"))->size, 13U);
}

TYPED_TEST_P(LogStorageContract, AFileInUseIsNotRemoved) {
  auto file = this->written("log", "text");
  EXPECT_FALSE(this->storage().removeFile(this->path("log")));
  EXPECT_TRUE(this->storage().fileExists(this->path("log")));
  file.reset();
  EXPECT_TRUE(this->storage().removeFile(this->path("log")));
  EXPECT_FALSE(this->storage().fileExists(this->path("log")));
  EXPECT_FALSE(this->storage().removeFile(this->path("log")));
}

TYPED_TEST_P(LogStorageContract, AFileWhoseUseHasEndedMayBeRemovedThoughItIsOpen) {
  const auto file = this->written("log", "text");
  file->endUse();
  EXPECT_TRUE(this->storage().removeFile(this->path("log")));
  EXPECT_EQ(file->placeOf(this->path("log")), platform::LogFile::Place::unlinked);
  EXPECT_EQ(file->contentsFrom(0), "text");
}

TYPED_TEST_P(LogStorageContract, AFileIsMovedAndTheOpenOneKnows) {
  const auto file = this->written("log", "text");
  EXPECT_EQ(file->placeOf(this->path("log")), platform::LogFile::Place::there);
  EXPECT_TRUE(this->storage().moveFile(this->path("log"), this->path("moved"), this->error));
  EXPECT_FALSE(this->storage().fileExists(this->path("log")));
  EXPECT_EQ(file->placeOf(this->path("log")), platform::LogFile::Place::moved);
  EXPECT_EQ(file->placeOf(this->path("moved")), platform::LogFile::Place::there);
}

TYPED_TEST_P(LogStorageContract, AMoveNeverReplacesAnotherFile) {
  this->written("log", "text");
  this->written("other", "other text");
  EXPECT_FALSE(this->storage().moveFile(this->path("log"), this->path("other"), this->error));
  EXPECT_EQ(this->error.code, EEXIST);
  EXPECT_NE(this->error.description, "");
  EXPECT_EQ(this->storage().openFile(this->path("other"))->contentsFrom(0), "other text");
  EXPECT_EQ(this->storage().openFile(this->path("log"))->contentsFrom(0), "text");
}

TYPED_TEST_P(LogStorageContract, AMissingFileIsNotMoved) {
  EXPECT_FALSE(this->storage().moveFile(this->path("missing"), this->path("new"), this->error));
  EXPECT_EQ(this->error.code, ENOENT);
  this->storage().createFile(this->path("log"));
  EXPECT_FALSE(this->storage().moveFile(this->path("log"), this->path("missing/log"), this->error));
  EXPECT_EQ(this->error.code, ENOENT);
  EXPECT_TRUE(this->storage().fileExists(this->path("log")));
}

TYPED_TEST_P(LogStorageContract, AFileThatAnotherProgramUnlinkedHasNoPlace) {
  const auto file = this->written("log", "text");
  this->world.unlink(this->path("log"));
  EXPECT_EQ(file->placeOf(this->path("log")), platform::LogFile::Place::unlinked);
  this->storage().createFile(this->path("log"));
  EXPECT_EQ(file->placeOf(this->path("log")), platform::LogFile::Place::unlinked);
}

TYPED_TEST_P(LogStorageContract, AMarkStaysWithTheFileThroughAMove) {
  this->storage().createFile(this->path("log"));
  EXPECT_FALSE(this->storage().hasMark(this->path("log"), "archived"));
  EXPECT_EQ(this->storage().setMark(this->path("log"), "archived"), 0);
  EXPECT_EQ(this->storage().setMark(this->path("log"), "archived"), 0);
  EXPECT_TRUE(this->storage().moveFile(this->path("log"), this->path("moved"), this->error));
  EXPECT_TRUE(this->storage().hasMark(this->path("moved"), "archived"));
  EXPECT_FALSE(this->storage().hasMark(this->path("moved"), "another"));
  bool wasMissing = false;
  EXPECT_EQ(this->storage().removeMark(this->path("moved"), "archived", wasMissing), 0);
  EXPECT_FALSE(wasMissing);
  EXPECT_FALSE(this->storage().hasMark(this->path("moved"), "archived"));
}

TYPED_TEST_P(LogStorageContract, RemovingAMissingMarkSaysThatItWasMissing) {
  this->storage().createFile(this->path("log"));
  bool wasMissing = false;
  EXPECT_NE(this->storage().removeMark(this->path("log"), "archived", wasMissing), 0);
  EXPECT_TRUE(wasMissing);
}

TYPED_TEST_P(LogStorageContract, AMissingFileCannotBeMarked) {
  bool wasMissing = false;
  EXPECT_EQ(this->storage().setMark(this->path("missing"), "archived"), ENOENT);
  EXPECT_EQ(this->storage().removeMark(this->path("missing"), "archived", wasMissing), ENOENT);
  EXPECT_FALSE(wasMissing);
  EXPECT_FALSE(this->storage().hasMark(this->path("missing"), "archived"));
}

REGISTER_TYPED_TEST_SUITE_P(LogStorageContract, AFileIsMadeEmptyAndOnlyOnce,
                            AFolderIsMadeWithThoseAboveItAndAnExistingOneIsSuccess, AFileInTheWayOfAFolderIsAnError,
                            AFolderNamesAllItsEntries, AMissingFileHasNoAttributesAndCannotBeOpened, AFolderCannotBeOpened,
                            BytesAreAppendedAtTheEndByAllWhoHaveTheFileOpen, AFileInUseIsNotRemoved,
                            AFileWhoseUseHasEndedMayBeRemovedThoughItIsOpen, AFileIsMovedAndTheOpenOneKnows,
                            AMoveNeverReplacesAnotherFile, AMissingFileIsNotMoved,
                            AFileThatAnotherProgramUnlinkedHasNoPlace, AMarkStaysWithTheFileThroughAMove,
                            RemovingAMissingMarkSaysThatItWasMissing, AMissingFileCannotBeMarked);

}  // namespace tests::contracts
