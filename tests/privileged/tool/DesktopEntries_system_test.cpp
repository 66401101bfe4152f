// Bundles that bring a desktop entry: installed, replaced, moved and removed, by root's tool for another user and by a
// user's own.
#include "privileged/tool/DesktopEntries.h"

#include <sys/file.h>

#include "tests/privileged/tool/DesktopBundles.h"

namespace tests::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(DesktopEntries, AppearWithABundleThatIsInstalled) {
  expectSuccess(replace(installed, download));
  EXPECT_EQ(system.value("Name"), "One");
  EXPECT_EQ(system.value("X-Kelto-Bundle"), installed);
  EXPECT_EQ(system.value("Exec"), (installed / "Contents/Linux/Controller %F").string());
  EXPECT_THAT(system.sizesFor(installed), ElementsAre("48x48", "scalable"));
  EXPECT_TRUE(users.isNothing());
  EXPECT_EQ(statusOf(system.entry()).st_mode & 07777U, 0644U);
  EXPECT_EQ(statusOf(system.entry()).st_uid, 0U);
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(DesktopEntries, ChangeWithABundleThatIsReplaced) {
  install("One");
  makeDesktopBundle(download, "Two", {"64x64", "scalable"});
  expectSuccess(replace(installed, download));
  EXPECT_EQ(system.value("Name"), "Two");
  EXPECT_THAT(system.sizesFor(installed), ElementsAre("64x64", "scalable"));
  EXPECT_FALSE(isThere(system.data / "icons/hicolor/48x48/apps/com.example.App.png"));
  makeDesktopBundle(download, "");
  expectSuccess(replace(installed, download));
  EXPECT_TRUE(system.isNothing()) << "the new version brings none";
}

TEST_F(DesktopEntries, FollowABundleThatIsMoved) {
  install("One");
  expectSuccess(move(installed, elsewhere));
  EXPECT_EQ(system.value("X-Kelto-Bundle"), elsewhere);
  EXPECT_EQ(system.value("Exec"), (elsewhere / "Contents/Linux/Controller %F").string());
  EXPECT_THAT(system.sizesFor(elsewhere), ElementsAre("48x48", "scalable"));
}

TEST_F(DesktopEntries, VanishWithABundleThatIsRemovedOrTrashed) {
  install("One");
  expectSuccess(remove(installed));
  EXPECT_TRUE(system.isNothing());
  install("Two");
  EXPECT_EQ(system.value("Name"), "Two");
  expectSuccess(trash(installed));
  EXPECT_TRUE(system.isNothing());
}

TEST_F(DesktopEntries, StayWhenTheJobIsRefused) {
  install("One");
  const auto before = snapshot(system.data);
  fs::create_symlink(installed, folder / "link");
  expectRefusal(replace(installed, folder / "link"), "is a symbolic link");
  expectRefusal(move(installed, folder / "missing/App.app"), "cannot open");
  EXPECT_EQ(snapshot(system.data), before);
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(DesktopEntries, AreNotMadeOfABundleThatIsOnlyCopiedFrom) {
  expectSuccess(copy(download, installed));
  EXPECT_EQ(system.value("X-Kelto-Bundle"), installed);
  EXPECT_THAT(system.sizesFor(download), IsEmpty());
}

TEST_F(DesktopEntries, PassTheCheckOfTheDistribution) {
  install("One");
  ASSERT_TRUE(isThere("/usr/bin/desktop-file-validate"));
  const auto path = folder / "validated";
  EXPECT_TRUE(runs("desktop-file-validate " + system.entry().string(), path)) << read(path);
  EXPECT_EQ(read(path), "");
}

TEST_F(DesktopEntries, AreLeftOutWithTheirCause) {
  expectLeftOutAfter([&] { writeWithMode(download / entryOfBundle, entryText("X", "/bin/sh")); }, "outside the bundle");
  expectLeftOutAfter([&] { writeWithMode(download / entryOfBundle, entryText("X") + "DBusActivatable=true\n"); },
                     "not allowed: DBusActivatable");
  expectLeftOutAfter([&] { writeWithMode(download / entryOfBundle, entryText("X", "Contents/Linux/None")); },
                     "missing from the bundle: Contents/Linux/None");
  expectLeftOutAfter([&] { writeWithMode(download / entryOfBundle, entryText("X", "Contents/Info.plist")); },
                     "not executable: Contents/Info.plist");
  expectLeftOutAfter([&] { writeWithMode(download / entryOfBundle, std::string(70000, '#')); }, "too long");
  expectLeftOutAfter([&] { fs::remove(download / entryOfBundle); }, "missing from the bundle");
  expectLeftOutAfter([&] { fs::remove(download / "Contents/Info.plist"); }, "the bundle has no identifier");
}

TEST_F(DesktopEntries, WithIconsOfOthersAreLeftOut) {
  const auto icons = download / iconsOfBundle;
  expectLeftOutAfter([&] { writeWithMode(icons / "48x48/apps/firefox.png", ""); },
                     "not named after the bundle: firefox.png");
  expectLeftOutAfter([&] { writeWithMode(icons / "48x48/apps/com.example.App2.png", ""); }, "not named after the bundle");
  expectLeftOutAfter([&] { writeWithMode(icons / "../x", ""), writeWithMode(icons / "a b/apps/x", ""); }, "not a size");
  expectLeftOutAfter([&] { writeWithMode(icons / "48x32/apps/com.example.App.png", ""); }, "not a size of icons: 48x32");
  expectLeftOutAfter([&] { fs::create_symlink("/etc/shadow", icons / "48x48/apps/com.example.App-a.png"); }, "not a file");
  expectLeftOutAfter(
      [&] {
        for (int i = 0; i < 70; ++i)
          writeWithMode(icons / "48x48/apps" / ("com.example.App-" + std::to_string(i) + ".png"), "");
      },
      "too many icons");
}

TEST_F(DesktopEntries, OfSomebodyElseAreNeitherOverwrittenNorHidden) {
  const fs::path packages = "/usr/share/applications/com.example.App.desktop";
  for (const auto& path : {system.entry(), system.data / "icons/hicolor/48x48/apps/com.example.App.png"}) {
    write(path, "[Desktop Entry]\nX-Other=1\n");
    const auto before = snapshot(system.data);
    makeDesktopBundle(download, "One");
    const auto answer = replace(installed, download);
    EXPECT_THAT(answer.text, HasSubstr("somebody else has " + path.string()));
    EXPECT_EQ(snapshot(system.data), before);
    fs::resize_file(result, 0);
    fs::remove(path);
  }
  if (!overlay("/usr/share/applications", "/usr/share/applications")) GTEST_SKIP() << "needs an overlay";
  write(packages, "");
  makeDesktopBundle(download, "Two");
  expectLeftOut(replace(installed, download), "somebody else has " + packages.string());
}

TEST_F(DesktopEntries, OfAnotherBundleStayUntilThatBundleIsGone) {
  install("One");
  makeDesktopBundle(download, "Other");
  const auto answer = replace(elsewhere, download);
  EXPECT_THAT(answer.text, HasSubstr("somebody else has"));
  EXPECT_EQ(system.value("Name"), "One");
  EXPECT_EQ(system.value("X-Kelto-Bundle"), installed);
  fs::remove_all(installed);
  fs::resize_file(result, 0);
  install("Two", elsewhere);
  EXPECT_EQ(system.value("X-Kelto-Bundle"), elsewhere);
  EXPECT_THAT(system.sizesFor(elsewhere), ElementsAre("48x48", "scalable"));
}

TEST_F(DesktopEntries, OfABundleThatItsUserCanChangeAreTheUsersOwn) {
  giveToUser(installed.parent_path());
  makeUsersOwn(download);
  expectSuccess(replace(installed, download));
  EXPECT_TRUE(system.isNothing());
  EXPECT_EQ(users.value("Name"), "One");
  EXPECT_THAT(users.sizesFor(installed), ElementsAre("48x48", "scalable"));
  for (const auto& entry : fs::recursive_directory_iterator(home() / ".local"))
    EXPECT_EQ(statusOf(entry.path()).st_uid, invokingUser) << entry.path();
  expectSuccess(remove(installed));
  EXPECT_TRUE(users.isNothing());
}

TEST_F(DesktopEntries, OfAUserAreReadWithThatUsersRightsOnly) {
  giveToUser(installed.parent_path());
  makeUsersOwn(download);
  ASSERT_EQ(::lchown((download / entryOfBundle).c_str(), 0, 0), 0);
  fs::permissions(download / entryOfBundle, fs::perms(0600));
  const auto answer = move(download, installed);
  EXPECT_THAT(answer.text, HasSubstr("the desktop entry was left out: "));
  EXPECT_EQ(statusOf(installed / entryOfBundle).st_uid, 0U);
  EXPECT_TRUE(users.isNothing());
}

TEST_F(DesktopEntries, OfABundleThatOthersCanChangeAreLeftOut) {
  fs::permissions(installed.parent_path(), fs::perms(0777));
  expectLeftOut(replace(installed, download), "others can exchange the bundle");
  EXPECT_TRUE(users.isNothing());
}

// Its owner of root's number proves nothing.
TEST_F(DesktopEntries, OfABundleOnAVolumeThatAnybodyCouldBringAreTheUsersOwn) {
  const auto volumeOfUser = volume("stick") / "App.app";
  ASSERT_EQ(::mount(nullptr, volumeOfUser.parent_path().c_str(), nullptr, MS_REMOUNT | MS_NOSUID, "mode=755"), 0);
  install("One", volumeOfUser);
  EXPECT_TRUE(system.isNothing());
  EXPECT_EQ(users.value("X-Kelto-Bundle"), volumeOfUser);
}

TEST_F(DesktopEntries, OfAKilledJobAreSettledByTheNextWhateverItIsAbout) {
  install("One");
  makeDesktopBundle(installed, "Two");
  fs::create_directories("/var/lib/kelto/entries/77");
  fs::create_symlink(installed, "/var/lib/kelto/entries/77/appears");
  write(folder / "any", "");
  expectSuccess(remove(folder / "any"));
  EXPECT_EQ(system.value("Name"), "Two");
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(DesktopEntries, OfAJobThatRunsAreLeftToIt) {
  install("One");
  makeDesktopBundle(installed, "Two");
  fs::create_directories("/var/lib/kelto/entries/77");
  fs::create_symlink(installed, "/var/lib/kelto/entries/77/appears");
  const posix::Descriptor held(::open("/var/lib/kelto/entries/77", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  write(folder / "any", "");
  expectSuccess(remove(folder / "any"));
  EXPECT_EQ(system.value("Name"), "One");
  EXPECT_THAT(notes(), ElementsAre("77"));
}

TEST_F(DesktopEntries, AreLeftOutWhereNothingCanBeNoted) {
  write("/var/lib/kelto/entries", "");
  expectLeftOut(replace(installed, download), "cannot keep notes");
}

TEST_F(DesktopEntries, ThatCannotBeWrittenNowAreBroughtByTheNextJob) {
  fs::create_symlink("nowhere", system.data / "applications");
  const auto answer = replace(installed, download);
  EXPECT_THAT(answer.text, HasSubstr("the desktop entry was left out: cannot make /usr/local/share/applications"));
  expectSuccess(answer);
  EXPECT_EQ(notes().size(), 1U);
  fs::remove(system.data / "applications");
  write(folder / "any", "");
  expectSuccess(remove(folder / "any"));
  EXPECT_EQ(system.value("Name"), "One");
  EXPECT_THAT(notes(), IsEmpty());
}

// A move keeps the owners: the bundle is root's, but not all of it.
TEST_F(DesktopEntries, WhoseProgramOthersCanChangeAreLeftOut) {
  giveToUser(download / "Contents/Linux/Controller");
  expectLeftOut(move(download, installed), "others can write Contents/Linux/Controller");
  expectSuccess(move(installed, download));
  fs::permissions(download / "Contents/Linux/Controller", fs::perms(0755));
  ASSERT_EQ(::lchown((download / "Contents/Linux/Controller").c_str(), 0, 0), 0);
  giveToUser(download / "Contents/Linux");
  expectLeftOut(move(download, installed), "others can write in Contents/Linux");
}

TEST_F(DesktopEntries, AreMadeInTheFoldersOfTheUsersOwnTool) {
  makeUsersOwn(download);
  const auto own = home() / "Applications/App.app";
  fs::create_directories(own.parent_path());
  giveToUser(own.parent_path());
  giveToUser(folder / "Download");
  const auto number = std::to_string(invokingUser);
  command = {"/usr/bin/setpriv", "--reuid=" + number, "--regid=" + std::to_string(invokingGroup), "--clear-groups",
             toolProgram};
  environment.push_back("XDG_DATA_HOME=" + (home() / "data").string());
  std::erase_if(environment, [](const auto& text) { return text.starts_with("XDG_STATE_HOME="); });
  expectSuccess(replace(own, download));
  const Shown named{home() / "data"};
  EXPECT_EQ(named.value("Name"), "One");
  EXPECT_THAT(named.sizesFor(own), ElementsAre("48x48", "scalable"));
  EXPECT_TRUE(system.isNothing());
  expectSuccess(trash(own));
  EXPECT_FALSE(isThere(named.entry()));
  EXPECT_THAT(named.sizesFor(own), IsEmpty());
}

// A move asks for no signature.
class SignedDesktopEntries : public DesktopEntries {
 protected:
  void SetUp() override {
    DesktopEntries::SetUp();
    if (IsSkipped()) return;
    if (!overlay("/etc", "/etc")) GTEST_SKIP() << "needs an overlay over /etc";
    bind(folder / "passwd", "/etc/passwd");
    writeWithMode("/etc/kelto/trust.d/publisher.pub", publisher.file());
    for (const char* path : {"/etc/kelto", "/etc/kelto/trust.d"}) fs::permissions(path, fs::perms(0755));
  }
  void signDownload() const {
    ASSERT_TRUE(runs(std::string(KELTO_BIN_DIR) + "/kelto-manifest " + shellWord(download)));
    publisher.sign(download / "Contents/_Signature/manifest");
  }
  void expectLeftOutAfterMove(const std::string& cause) {
    const auto answer = move(download, installed);
    EXPECT_THAT(answer.text, HasSubstr("the desktop entry was left out: " + cause));
    EXPECT_FALSE(isThere(system.entry()));
  }

  const tests::TemporaryFolder keys;
  const KeyPair publisher{keys, "publisher"};
};

TEST_F(SignedDesktopEntries, AppearWithTheirBundle) {
  signDownload();
  expectSuccess(move(download, installed));
  EXPECT_EQ(system.value("Name"), "One");
}

TEST_F(SignedDesktopEntries, OfUnsignedBundlesAreLeftOut) { expectLeftOutAfterMove("the bundle is not signed"); }

TEST_F(SignedDesktopEntries, ThatWereChangedAfterTheBundleWasSignedAreLeftOut) {
  signDownload();
  writeWithMode(download / entryOfBundle, entryText("Changed"));
  expectLeftOutAfterMove("the contents differ from the manifest");
}

// The programs are played by a script that writes down what it can do.
class DesktopCaches : public DesktopEntries {
 protected:
  void SetUp() override {
    DesktopEntries::SetUp();
    if (IsSkipped()) return;
    writeWithMode(
        folder / "program",
        "#!/bin/sh\n{ echo $0 $*; grep CapEff /proc/self/status; id -u; ls /proc/self/fd | wc -l\n"
        "echo >" +
            (folder / "outside").string() +
            "; /usr/bin/python3 -ISc 'import socket; socket.socket(socket.AF_UNIX); print(\"has a\", \"socket\")'\n"
            "} >/usr/local/share/$(basename $0 | grep -q icon && echo icons/hicolor || echo "
            "applications)/told.cache 2>&1\n",
        0755);
    for (const char* program : {"/usr/bin/update-desktop-database", "/usr/bin/gtk-update-icon-cache"})
      if (isThere(program)) bind(folder / "program", program);
  }
  [[nodiscard]] std::string told() const { return read(system.data / "applications/told.cache"); }
};

TEST_F(DesktopCaches, AreUpdatedWithoutWhatRootCanDo) {
  install("One");
  EXPECT_THAT(told(), HasSubstr("/usr/bin/update-desktop-database -q /usr/local/share/applications\n"));
  EXPECT_THAT(told(), HasSubstr("CapEff:\t0000000000000000\n0\n"));
  EXPECT_THAT(told(), Not(HasSubstr("has a socket")));
  EXPECT_THAT(told(), HasSubstr("PermissionError")) << "the attempt was refused";
  EXPECT_FALSE(isThere(folder / "outside")) << told();
}

TEST_F(DesktopCaches, OfIconsAreUpdatedWhereThereAreSome) {
  install("One");
  EXPECT_FALSE(isThere(system.data / "icons/hicolor/told.cache"));
  write(system.data / "icons/hicolor/icon-theme.cache", "");
  install("Two");
  EXPECT_THAT(read(system.data / "icons/hicolor/told.cache"), HasSubstr("-q -f -t -i /usr/local/share/icons/hicolor\n"));
}

TEST_F(DesktopEntries, AreKnownByTheirMediaTypesAtOnce) {
  if (!isThere("/usr/bin/update-desktop-database")) GTEST_SKIP() << "needs desktop-file-utils";
  install("One");
  EXPECT_THAT(read(system.data / "applications/mimeinfo.cache"),
              HasSubstr("application/x-example=com.example.App.desktop;"));
  expectSuccess(remove(installed));
  EXPECT_THAT(read(system.data / "applications/mimeinfo.cache"), Not(HasSubstr("com.example.App")));
}

}  // namespace
}  // namespace tests::tool
