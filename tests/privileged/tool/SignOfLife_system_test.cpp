// A tree may take minutes to remove: every entry that goes can be seen from outside.
#include "privileged/tool/SignOfLife.h"

#include "privileged/tool/Failure.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/TrashCommand.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

using AssistantTool::PathWalk;
using AssistantTool::Staging;

// Counts the signs before which something has gone from `folder`, which need not be there.
class RemovalWatch final : public AssistantTool::Answer {
 public:
  explicit RemovalWatch(fs::path folder) : _folder(std::move(folder)) {}
  void write(std::string_view /*text*/) const override {}
  void give(Sign /*sign*/) const override {
    int entries = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator at(_folder, error), end; at != end; at.increment(error)) ++entries;
    if (entries < _entries) ++removals;
    _entries = entries;
  }
  [[nodiscard]] std::pair<dev_t, ino_t> identity() const override { return {}; }
  mutable int removals = 0;

 private:
  fs::path _folder;
  mutable int _entries = 0;
};

class SignOfLifeOfARemoval : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    for (int number = 0; number < files; ++number) write(folder / "media/Tree" / std::to_string(number), "x");
  }

  static constexpr int files = 4;
};

TEST_F(SignOfLifeOfARemoval, ComesForEveryHardLinkOfACopy) {
  for (int number = 0; number < files; ++number) {
    const auto name = std::to_string(number);
    fs::create_hard_link(folder / "media/Tree" / name, folder / "media/Tree" / ("again " + name));
  }
  const PathWalk walk(0);
  const auto tree = walk.locate((folder / "media/Tree").string());
  const Staging staging(walk.locate((folder / "copy").string()));
  const RemovalWatch watch(folder);
  const auto found = AssistantTool::surveyWithoutSpecialFiles(tree, std::nullopt, {});
  const AssistantTool::SignsOfLife signs(watch, {});
  AssistantTool::stageCopy(tree, staging, std::nullopt, found);
  EXPECT_GE(watch.removals, files);
}

TEST_F(SignOfLifeOfARemoval, ComesForEverythingInAStagingFolder) {
  Staging staging(PathWalk(0).locate((folder / "media/App.app").string()));
  fs::path place;
  for (const auto& entry : fs::directory_iterator(folder / "media"))
    if (entry.path().filename().string().starts_with(".kelto")) place = entry.path();
  fs::rename(folder / "media/Tree", place / Staging::doomed);
  const RemovalWatch watch(folder);
  const AssistantTool::SignsOfLife signs(watch, {});
  AssistantTool::giveSignOfLife();
  EXPECT_EQ(staging.discard(), "");
  EXPECT_GE(watch.removals, files);
}

// An item on a read-only volume is copied to the Trash, and cannot be taken away then.
TEST_F(SignOfLifeOfARemoval, ComesForEverythingThatLeavesTheTrash) {
  setHome(folder / "home");
  fs::create_directory(folder / "home");
  giveToUser(folder / "home");
  write(volume("stick") / "Tree/0", "x");
  for (int number = 1; number < files; ++number) write(folder / "stick/Tree" / std::to_string(number), "x");
  makeReadOnly(folder / "stick");
  const InstructionArchive::Instructions item{{protocol::filePathKey, folder / "stick/Tree"}};
  const PathWalk walk(invokingUser);
  const AssistantTool::Rules rules;
  AssistantTool::Bundles bundles;
  const auto trashed = folder / "home/.local/share/Trash/files/Tree";
  const RemovalWatch watch(trashed);
  const AssistantTool::SignsOfLife signs(watch, {});
  EXPECT_THROW(AssistantTool::trashFile({item, walk, rules, bundles}), AssistantTool::Failure);
  EXPECT_FALSE(isThere(trashed));
  EXPECT_GE(watch.removals, files);
}

}  // namespace
}  // namespace tests::tool
