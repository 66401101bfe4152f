// Bringing a tree to the disk while somebody exchanges its files.
#include "privileged/tool/Tree.h"

#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

class SyncedTree : public NamespaceTest {};

TEST_F(SyncedTree, IsNotFollowedThroughALinkThatTookAFilesPlace) {
  if (!isTracingPossible()) GTEST_SKIP() << "calls cannot be traced here";
  const auto source = folder / "source/App.app";
  const auto destination = folder / "destination/App.app";
  write(source / "file", "new");
  write(destination / "file", "old");
  write(folder / "secret", "root's");
  fs::create_symlink(folder / "secret", folder / "link");
  bool isLink = false;
  // Where the file is at that moment: in the source or staged.
  const auto exchange = [&] {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const bool isWanted = entry.path().filename() == "file" && (entry.is_symlink() || read(entry.path()) == "new");
      if (isWanted &&
          ::renameat2(AT_FDCWD, entry.path().c_str(), AT_FDCWD, (folder / "link").c_str(), RENAME_EXCHANGE) == 0) {
        isLink = !isLink;
        return;
      }
    }
  };
  bool wasLink = false;
  const Meddler meddler{.meddle =
                            [&] {
                              exchange();
                              wasLink = isLink;
                            },
                        .undo = exchange,
                        .opening = "file"};
  const auto bytes = bytesOf({{protocol::commandKey, protocol::replaceItemCommand},
                              {protocol::sourcePathKey, source},
                              {protocol::destinationPathKey, destination}});
  const auto traced = runWithFault({toolProgram}, bytes, environment, {}, &meddler);
  EXPECT_TRUE(wasLink);
  expectRefusal(traced.answer, "cannot sync file");
  EXPECT_EQ(read(destination / "file"), "old");
  EXPECT_EQ(read(source / "file"), "new");
}

}  // namespace
}  // namespace tests::tool
