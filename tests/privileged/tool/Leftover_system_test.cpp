// Things that a job cannot delete are told with their path, and deleted by the next job in the same place.
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <utility>

#include "privileged/tool/Failure.h"
#include "privileged/tool/FileCommands.h"
#include "privileged/tool/Staging.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

using AssistantTool::Outcome;
using AssistantTool::PathWalk;
using AssistantTool::Staging;

class Leftover : public NamespaceTest {
 protected:
  // In this process, so that the warning is seen that goes to the system log otherwise.
  Outcome perform(Outcome (*command)(const AssistantTool::Request&), const fs::path& source, const fs::path& destination) {
    const InstructionArchive::Instructions items{{protocol::sourcePathKey, source},
                                                 {protocol::destinationPathKey, destination}};
    const AssistantTool::Rules rules;
    AssistantTool::Bundles bundles;
    return command({items, walk, rules, bundles});
  }
  // Does the last step of the job and ends it, which unlocks its folders.
  static std::string endOf(Outcome& outcome) {
    const auto afterwards = std::exchange(outcome.afterwards, {});
    return afterwards();
  }
  // Nobody can delete such a file, root included. False when the file system has no such files.
  static bool setImmutable(const fs::path& file, bool immutable) {
    const int opened = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    unsigned flags = 0;
    const bool done = ::ioctl(opened, FS_IOC_GETFLAGS, &flags) == 0 &&
                      (flags = immutable ? flags | FS_IMMUTABLE_FL : flags & ~static_cast<unsigned>(FS_IMMUTABLE_FL),
                       ::ioctl(opened, FS_IOC_SETFLAGS, &flags) == 0);
    ::close(opened);
    return done;
  }
  static std::vector<fs::path> stagingFoldersIn(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().filename().string().starts_with(".kelto-staging-")) found.push_back(entry.path());
    }
    return found;
  }
  // As a job does that is killed between its two renames.
  void leaveOldItemOf(const fs::path& app) {
    Staging staging(walk.locate(app.string()));
    staging.noteDestination(app.filename());
    const auto inside = fs::read_symlink("/proc/self/fd/" + std::to_string(staging.folder()));
    makeBundle(inside / Staging::oldItem, "1");
    staging.keep();
  }
  void doNextJob(const fs::path& place) {
    write(place / "next", "");
    const auto answer = remove(place / "next");
    EXPECT_EQ(answer.status, 0) << answer.text;
    fs::resize_file(result, 0);
  }
  // The one folder that is left, in which the immutable file is; `warning` names it.
  void expectToldAndClearedByTheNextJob(const std::string& warning, const fs::path& place, const fs::path& fileInside) {
    const auto left = stagingFoldersIn(place);
    ASSERT_EQ(left.size(), 1U);
    EXPECT_THAT(warning, ::testing::HasSubstr("could not delete all of " + left.front().string()));
    doNextJob(place);
    EXPECT_EQ(stagingFoldersIn(place).size(), 1U) << "cannot be deleted yet";
    ASSERT_TRUE(setImmutable(left.front() / fileInside, false));
    doNextJob(place);
    EXPECT_THAT(stagingFoldersIn(place), ::testing::IsEmpty());
    EXPECT_TRUE(snapshot(journal()).empty());
  }

  PathWalk walk{0};
};

TEST_F(Leftover, OfAReplacementIsToldAndClearedByTheNextJob) {
  const auto app = folder / "apps/App.app";
  makeBundle(app, "1");
  makeBundle(folder / "new/App.app", "2");
  if (!setImmutable(app / "Contents/Info.plist", true)) GTEST_SKIP() << "no immutable files here";
  auto outcome = perform(AssistantTool::replaceItem, folder / "new/App.app", app);
  EXPECT_EQ(read(app / "Contents/Info.plist"), "version 2");
  expectToldAndClearedByTheNextJob(endOf(outcome), app.parent_path(), "new/Contents/Info.plist");
}

TEST_F(Leftover, OfAMoveIsToldAndClearedByTheNextJob) {
  const auto from = volume("from");
  makeBundle(from / "App.app", "1");
  if (!setImmutable(from / "App.app/Contents/Info.plist", true)) GTEST_SKIP() << "no immutable files here";
  fs::create_directory(folder / "to");
  auto outcome = perform(AssistantTool::moveFile, from / "App.app", folder / "to/App.app");
  EXPECT_EQ(read(folder / "to/App.app/Contents/Info.plist"), "version 1");
  expectToldAndClearedByTheNextJob(endOf(outcome), from, "doomed/Contents/Info.plist");
}

TEST_F(Leftover, GivesNoWarningWhenAllIsDeleted) {
  const auto from = volume("from");
  makeBundle(from / "App.app", "1");
  fs::create_directory(folder / "to");
  EXPECT_EQ(perform(AssistantTool::moveFile, from / "App.app", folder / "to/App.app").afterwards(), "");
}

// Without its notes the old item would be taken for something that the job had no use for.
TEST_F(Leftover, KeepsTheOldItemWhicheverNoteCannotBeRead) {
  const auto app = folder / "apps/App.app";
  const auto whole = command;
  for (int look = 1; look <= 4; ++look) {
    SCOPED_TRACE(look);
    fs::remove_all(app);
    write(folder / "apps/next", "");
    leaveOldItemOf(app);
    command = withFaults({"readlinkat:error=EIO:when=" + std::to_string(look)});
    if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
    const auto answer = remove(folder / "apps/next");
    EXPECT_GT(answer.status, 0);
    EXPECT_THAT(answer.text, ::testing::ContainsRegex("cannot read the link [^ ]*: Input/output error"));
    fs::resize_file(result, 0);
    command = whole;
    doNextJob(app.parent_path());
    EXPECT_EQ(read(app / "Contents/Info.plist"), "version 1");
  }
}

// A later upgrade would follow the note, and take away what was installed meanwhile.
TEST_F(Leftover, OfAnUpgradeWhoseNoteCannotBeRemovedIsAFailure) {
  const auto server = walk.locate((folder / "server").string());
  {
    Staging staging(server);
    staging.noteUndo("server");
    staging.keep();
  }
  bind(journal(), journal());
  ASSERT_EQ(::mount(nullptr, journal().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  EXPECT_THROW(Staging::settleUndo(server, true), AssistantTool::Failure);
  EXPECT_TRUE(Staging::hasUndo(server));
  ASSERT_EQ(::mount(nullptr, journal().c_str(), nullptr, MS_REMOUNT | MS_BIND, nullptr), 0);
  EXPECT_NO_THROW(Staging::settleUndo(server, true));
  EXPECT_FALSE(Staging::hasUndo(server));
}

}  // namespace
}  // namespace tests::tool
