#pragma once
// A download some thousand folders deep, and a small stack: root's tool must not crash, nor leave what crashes later jobs.
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {

class DeepTree : public AttackGround, public ::testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    // In kilobytes; a stack of the usual size takes a deeper tree. Nor may each level cost a descriptor.
    command = {"/bin/sh", "-c", "ulimit -s 512 && ulimit -n 128 && exec \"$0\"", tests::testedPrograms() / "assistantTool"};
    app = rootsBundle(folder / "apps/App.app", "1");
    rootsBundle(folder / "apps/Second.app", "1");
  }
  // Below `top`, as the user.
  static void deepen(const fs::path& top, int levels) {
    int folder = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < levels; ++i) {
      ASSERT_EQ(::mkdirat(folder, "d", 0755), 0) << "level " << i;
      const int inner = ::openat(folder, "d", O_RDONLY | O_DIRECTORY);
      ::close(folder);
      folder = inner;
      ASSERT_EQ(::fchown(folder, invokingUser, invokingUser), 0);
    }
    ::close(folder);
  }
  // Done up to the bound, and beyond it refused before anything is changed.
  bool endsInOrder(const Answer& answer) {
    EXPECT_GE(answer.status, 0) << "ended by signal " << -answer.status;
    const bool done = isDone(answer);
    EXPECT_EQ(done, GetParam() <= deepest) << lastText;
    EXPECT_THAT(lastText, ::testing::HasSubstr(done ? "App.app" : "deeper than 4096 folders"));
    return done;
  }
  void expectUpdatedInOrder(const Answer& answer) {
    const bool done = endsInOrder(answer);
    EXPECT_TRUE(isThere(app / "Contents/Info.plist"));
    EXPECT_EQ(versionOf(app), done ? "version 2" : "version 1");
  }
  // The next update in the same folder.
  void expectOthersServed() {
    const auto second = folder / "apps/Second.app";
    ASSERT_EQ(versionOf(second), "version 1");
    const auto answer = replace(second, download("Second.app", "2"));
    EXPECT_EQ(answer.status, 0) << answer.text;
    EXPECT_TRUE(isDone(answer));
    EXPECT_EQ(versionOf(second), "version 2");
  }

  static constexpr int deepest = 4090;  // what a job takes at least
  fs::path app;
};

TEST_P(DeepTree, AsAnUpdateCrashesNeitherItsOwnJobNorTheNext) {
  const auto source = download("App.app", "2");
  deepen(source / "Contents", GetParam());
  expectUpdatedInOrder(replace(app, source));
  expectOthersServed();
}

TEST_P(DeepTree, AsWhatIsReplacedCrashesNeitherItsOwnJobNorTheNext) {
  deepen(app / "Contents", GetParam());
  expectUpdatedInOrder(replace(app, download("App.app", "2")));
  expectOthersServed();
}

TEST_P(DeepTree, AsWhatIsRemovedCrashesNeitherItsOwnJobNorTheNext) {
  deepen(app / "Contents", GetParam());
  const bool done = endsInOrder(remove(app));
  EXPECT_EQ(isThere(app), !done);
  expectOthersServed();
}

}  // namespace tests::tool
