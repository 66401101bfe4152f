#pragma once
// A very deep tree, taken along in every way.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/privileged/tool/Fidelity.h"

namespace tests::tool {

inline constexpr int deepLevels = 2000;

// The levels below `app` down to the file "bottom"; -1 when that is not there. Makes them.
inline int levelsOf(const fs::path& app, bool makes = false) {
  int levels = 0;
  int folder = ::open(app.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (; levels < deepLevels; ++levels) {
    if (makes && ::mkdirat(folder, "deep", 0755) != 0) break;
    const int next = ::openat(folder, "deep", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (next < 0) break;
    ::close(folder);
    folder = next;
  }
  if (makes) ::close(::openat(folder, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  const bool isBottom = ::faccessat(folder, "bottom", F_OK, 0) == 0;
  ::close(folder);
  return isBottom ? levels : -1;
}

class FidelityOfLevels : public Fidelity, public ::testing::WithParamInterface<Way> {};

TEST_P(FidelityOfLevels, ATreeOfTwoThousandLevels) {
  if (const auto missing = missingFor(GetParam()); !missing.empty()) GTEST_SKIP() << missing;
  const auto from = source(GetParam());
  fs::create_directories(from);
  ASSERT_EQ(levelsOf(from, true), deepLevels);
  if (GetParam().isTooDeepForRestorer()) {
    trashWhole(from);
    EXPECT_NE((GetParam().restoredBy == "mv" ? restoreByMv(from) : restoreByTrashProgram(from)).status, 0);
    EXPECT_EQ(levelsOf(trashed()), deepLevels) << "not whole in the Trash any more";
    EXPECT_TRUE(isThere(infoOf()));
    // The tool brings it back, when the half that the program left is out of the way.
    EXPECT_EQ(remove(from).status, 0);
    fs::resize_file(result, 0);
    EXPECT_EQ(move(trashed(), from).status, 0);
    EXPECT_EQ(levelsOf(from), deepLevels);
  } else {
    EXPECT_EQ(levelsOf(take(GetParam())), deepLevels);
  }
  fs::resize_file(result, 0);
  EXPECT_EQ(remove(from.parent_path()).status, 0);
}

}  // namespace tests::tool
