// A job finds the note of another user's job that was killed before it had settled its desktop entry.
#include <fstream>

#include "tests/privileged/tool/DesktopBundles.h"

namespace tests::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class DesktopEntriesOfOthers : public DesktopEntries {
 protected:
  void SetUp() override {
    DesktopEntries::SetUp();
    if (IsSkipped()) return;
    std::ofstream(folder / "passwd", std::ios::app)
        << "other:x:" << otherUser << ":" << otherUser << "::" << othersHome.string() << ":/bin/sh\n";
    fs::create_directory(othersHome);
    giveToOther(othersHome);
  }
  static void giveToOther(const fs::path& path) { EXPECT_EQ(::lchown(path.c_str(), otherUser, otherUser), 0); }
  // It had replaced the other's own bundle, and not yet shown that.
  void leaveNoteAbout(const fs::path& bundle) {
    fs::create_directories("/var/lib/kelto/entries/77");
    fs::create_symlink(std::to_string(otherUser), "/var/lib/kelto/entries/77/user");
    fs::create_symlink(bundle, "/var/lib/kelto/entries/77/appears");
  }
  void makeBundleOfOther(const fs::path& bundle) {
    makeDesktopBundle(bundle, "Theirs");
    for (const auto& entry : fs::recursive_directory_iterator(othersHome)) giveToOther(entry.path());
  }
  void doAnotherJob() {
    write(folder / "any", "");
    fs::resize_file(result, 0);
    const auto answer = remove(folder / "any");
    EXPECT_THAT(answer.text, Not(HasSubstr("the desktop entry was left out"))) << "this job has none";
    expectSuccess(answer);
  }
  void becomeToolOfOther() {
    std::erase_if(environment, [](const auto& text) { return text.starts_with(protocol::invokingUserVariable); });
    environment.push_back(std::string(protocol::invokingUserVariable) + "=" + std::to_string(otherUser));
    for (const auto& path : {result.parent_path(), result}) giveToOther(path);
  }

  static constexpr uid_t otherUser = 12400;
  const fs::path othersHome = folder / "others";
  const fs::path othersBundle = othersHome / "Applications/App.app";
  const Shown others{othersHome / ".local/share"};
};

TEST_F(DesktopEntriesOfOthers, StayNotedWhileTheNoteCannotBeRead) {
  makeBundleOfOther(othersBundle);
  leaveNoteAbout(othersBundle);
  write(folder / "any", "");
  command = withFaults({"readlinkat:error=EIO:when=1"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  EXPECT_THAT(remove(folder / "any").text, HasSubstr("left out: cannot read the link user: Input/output error"));
  EXPECT_THAT(notes(), ElementsAre("77"));
  EXPECT_TRUE(system.isNothing());
}

TEST_F(DesktopEntriesOfOthers, AreLeftToTheirOwner) {
  makeBundleOfOther(othersBundle);
  leaveNoteAbout(othersBundle);
  doAnotherJob();
  EXPECT_TRUE(others.isNothing());
  EXPECT_TRUE(system.isNothing());
  EXPECT_THAT(notes(), ElementsAre("77"));
  becomeToolOfOther();
  doAnotherJob();
  EXPECT_EQ(others.value("X-Kelto-Bundle"), othersBundle);
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(DesktopEntriesOfOthers, WidenTheBoundsOfNoJob) {
  makeBundleOfOther(othersBundle);
  leaveNoteAbout(othersBundle);
  write(folder / "any", "");
  EXPECT_FALSE(isRemovalBoundedTo(othersHome, folder / "any"));
}

TEST_F(DesktopEntriesOfOthers, AreSettledAtOnceInThePlaceOfAllUsers) {
  install("One");
  makeDesktopBundle(installed, "Two");
  leaveNoteAbout(installed);
  write(folder / "any", "");
  EXPECT_TRUE(isRemovalBoundedTo(installed.parent_path(), folder / "any")) << "only root can change it";
  doAnotherJob();
  EXPECT_EQ(system.value("Name"), "Two");
  fs::remove_all(system.data / "applications");
  doAnotherJob();
  EXPECT_TRUE(system.value("Name").empty()) << "once is enough";
  EXPECT_THAT(notes(), ElementsAre("77")) << "the place of their own is still to come";
  becomeToolOfOther();
  doAnotherJob();
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(DesktopEntriesOfOthers, VanishFromThePlaceOfAllUsersWithTheirBundle) {
  install("One");
  fs::remove_all(installed);
  leaveNoteAbout(installed);
  doAnotherJob();
  EXPECT_TRUE(system.isNothing());
}

}  // namespace
}  // namespace tests::tool
