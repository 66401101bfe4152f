#include "platform/linux/SurvivingMemories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

}  // namespace

TEST(SurvivingMemories, LieInTheRuntimeFolderOfTheUser) {
  const tests::TemporaryFolder runtime;
  const tests::EnvironmentVariable environment("XDG_RUNTIME_DIR", runtime.path());
  platform::Linux::SurvivingMemories memories;
  const auto memory = memories.make("a name", 8192);
  ASSERT_NE(memory, nullptr);
  EXPECT_THAT(namesIn(runtime.path()), SizeIs(1));
  memory->discard();
  EXPECT_THAT(namesIn(runtime.path()), IsEmpty());
}

TEST(SurvivingMemories, OfARunningProcessAreNobodysToTake) {
  const tests::TemporaryFolder folder;
  platform::Linux::SurvivingMemories memories(folder.path());
  const auto memory = memories.make("a name", 8192);
  EXPECT_THAT(memories.orphans("a name", 8192), IsEmpty());
}

TEST(SurvivingMemories, OfAProcessThatDiedGoToOneTakerWithTheirBytes) {
  const tests::TemporaryFolder folder;
  platform::Linux::SurvivingMemories memories(folder.path());
  memories.make("a/name", 8192)->bytes()[5] = std::byte{42};
  const auto found = memories.orphans("a/name", 8192);
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found.front()->bytes()[5], std::byte{42});
  EXPECT_THAT(memories.orphans("a/name", 8192), IsEmpty());
}

TEST(SurvivingMemories, OfAnotherNameAreLeftAlone) {
  const tests::TemporaryFolder folder;
  platform::Linux::SurvivingMemories memories(folder.path());
  memories.make("a name", 8192).reset();
  EXPECT_THAT(memories.orphans("another", 8192), IsEmpty());
  EXPECT_THAT(namesIn(folder.path()), SizeIs(1));
}

TEST(SurvivingMemories, OfAnotherSizeAreRemovedUnlessTheirProcessRuns) {
  const tests::TemporaryFolder folder;
  platform::Linux::SurvivingMemories memories(folder.path());
  auto memory = memories.make("a name", 8192);
  EXPECT_THAT(memories.orphans("a name", 4096), IsEmpty());
  EXPECT_THAT(namesIn(folder.path()), SizeIs(1));
  memory.reset();
  EXPECT_THAT(memories.orphans("a name", 4096), IsEmpty());
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(SurvivingMemories, OfAnotherExecutableOfThatNameAreLeftAlone) {
  const tests::TemporaryFolder folder;
  platform::Linux::SurvivingMemories own(folder.path(), "/usr/bin/name");
  platform::Linux::SurvivingMemories other(folder.path(), "/home/somebody/name");
  own.make("name", 8192).reset();
  EXPECT_THAT(other.orphans("name", 8192), IsEmpty());
  EXPECT_THAT(own.orphans("name", 8192), SizeIs(1));
}
