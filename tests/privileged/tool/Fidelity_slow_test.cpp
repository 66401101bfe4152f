#include "tests/privileged/tool/Fidelity.h"
#include "tests/privileged/tool/FidelityOfLevels.h"
#include "tests/privileged/tool/Volumes.h"

namespace tests::tool {
namespace {

class ManyFiles : public Fidelity, public ::testing::WithParamInterface<Way> {};

TEST_P(ManyFiles, AreAllThere) {
  if (const auto missing = missingFor(GetParam()); !missing.empty()) GTEST_SKIP() << missing;
  const auto app = source(GetParam());
  for (int i = 0; i < 100; ++i) {
    const auto folder = app / std::to_string(i);
    fs::create_directories(folder);
    for (int j = 0; j < 1000; ++j) std::ofstream(folder / std::to_string(j)) << i << ' ' << j;
  }
  const auto taken = take(GetParam());
  int right = 0;
  for (int i = 0; i < 100; ++i) {
    for (int j = 0; j < 1000; ++j)
      right += read(taken / std::to_string(i) / std::to_string(j)) == std::to_string(i) + " " + std::to_string(j) ? 1 : 0;
  }
  EXPECT_EQ(right, 100000);
}
INSTANTIATE_TEST_SUITE_P(Fidelity, ManyFiles, ::testing::ValuesIn(allWays), wayOf);

INSTANTIATE_TEST_SUITE_P(Fidelity, FidelityOfLevels, ::testing::ValuesIn(allWays), wayOf);

// The trash program fills the holes, so this one goes back to a file system that packs them again.
TEST_F(Fidelity, ASparseFileOfFourGigabytesIsRestoredFilledByTheTrashProgram) {
  const Way way{"trash", true, "trash-restore"};
  if (const auto missing = missingFor(way); !missing.empty()) GTEST_SKIP() << missing;
  const auto place = source(way).parent_path();
  fs::create_directory(place);
  const FileSystemKind packing{"btrfs", "/sbin/mkfs.btrfs -q -f -K", off_t{1} << 30, "compress-force=zstd:1"};
  if (const auto reason = makeImage(packing, other / "image"); !reason.empty()) GTEST_SKIP() << reason;
  {
    const LoopDevice device(other / "image");
    if (!device.isOpen()) GTEST_SKIP() << "no loop device";
    ASSERT_EQ(::mount(device.path().c_str(), place.c_str(), "btrfs", 0, packing.options.c_str()), 0);
  }
  write(place / (".Trash-" + std::to_string(invokingUser)), "");
  constexpr off_t size = off_t{4} << 30;
  write(source(way) / "large", "begin");
  fs::resize_file(source(way) / "large", size);
  const auto large = take(way) / "large";
  EXPECT_EQ(statusOf(large).st_size, size);
  EXPECT_GE(statusOf(large).st_blocks, size / 512) << "the holes were kept";
  EXPECT_EQ(statusOf(large).st_uid, invokingUser);
  std::string begin(5, '\0');
  std::ifstream(large).read(begin.data(), 5);
  EXPECT_EQ(begin, "begin");
  ::umount2(place.c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace tests::tool
