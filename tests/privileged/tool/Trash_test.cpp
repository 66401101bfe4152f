#include "privileged/tool/TrashFolder.h"

#include <fcntl.h>

#include <algorithm>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

// With a data folder of the test's own as the environment of the user who runs it.
class TrashFile : public ToolTest {
 protected:
  TrashFile() { environment.push_back("XDG_DATA_HOME=" + (folder / "data").string()); }
  fs::path trashFolder = folder / "data/Trash";
  // A command of a file manager's kind over the same Trash; its output.
  std::string ask(const std::string& shellCommand) {
    const auto output = folder / "answer";
    const auto line = "cd '" + folder.string() + "' && XDG_DATA_HOME='" + (folder / "data").string() + "' " + shellCommand +
                      " > '" + output.string() + "' 2>&1";
    EXPECT_EQ(std::system(line.c_str()), 0) << read(output);
    return read(output);
  }
};

TEST_F(TrashFile, MovesTheItemToTheUsersTrash) {
  makeBundle(folder / "App.app", "1");
  const auto wanted = snapshot(folder / "App.app");
  expectSuccess(trash(folder / "App.app"));
  EXPECT_FALSE(isThere(folder / "App.app"));
  EXPECT_EQ(snapshot(trashFolder / "files/App.app"), wanted);
}

TEST_F(TrashFile, SaysWhereItWasAndWhenItWent) {
  write(folder / "a b%\xc3\xa9", "item");
  expectSuccess(trash(folder / "a b%\xc3\xa9"));
  auto info = read(trashFolder / "info/a b%\xc3\xa9.trashinfo");
  const auto date = info.find("DeletionDate=");
  ASSERT_NE(date, std::string::npos);
  EXPECT_EQ(info.substr(0, date), "[Trash Info]\nPath=" + folder.string() + "/a%20b%25%C3%A9\n");
  std::replace_if(
      info.begin() + static_cast<std::ptrdiff_t>(date), info.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
  EXPECT_EQ(info.substr(date), "DeletionDate=9999-99-99T99:99:99\n");
}

TEST_F(TrashFile, TellsItsPlaceInTheOutput) {
  write(folder / "item", "item");
  write(folder / "output", "");
  expectSuccess(run({{protocol::commandKey, protocol::trashFileCommand},
                     {protocol::filePathKey, folder / "item"},
                     {protocol::outputPathKey, folder / "output"}}));
  EXPECT_EQ(read(folder / "output"), (trashFolder / "files/item").string());
}

TEST_F(TrashFile, GivesItemsOfTheSameNameNamesOfTheirOwn) {
  for (const char* version : {"1", "2", "3"}) {
    makeBundle(folder / "App.app", version);
    expectSuccess(trash(folder / "App.app"));
  }
  EXPECT_EQ(read(trashFolder / "files/App.app/Contents/Info.plist"), "version 1");
  EXPECT_EQ(read(trashFolder / "files/App 2.app/Contents/Info.plist"), "version 2");
  EXPECT_EQ(read(trashFolder / "files/App 3.app/Contents/Info.plist"), "version 3");
  EXPECT_TRUE(isThere(trashFolder / "info/App 3.app.trashinfo"));
}

TEST_F(TrashFile, DoesNotOverwriteAnItemThatHasNoInfo) {
  write(trashFolder / "files/item", "stray");
  fs::permissions(folder / "data", fs::perms(0755));
  write(folder / "item", "item");
  expectSuccess(trash(folder / "item"));
  EXPECT_EQ(read(trashFolder / "files/item"), "stray");
  EXPECT_EQ(read(trashFolder / "files/item 2"), "item");
  EXPECT_FALSE(isThere(trashFolder / "info/item.trashinfo"));
}

TEST_F(TrashFile, MakesTheTrashForItsUserOnly) {
  write(folder / "item", "item");
  expectSuccess(trash(folder / "item"));
  for (const char* name : {"", "files", "info"}) EXPECT_EQ(statusOf(trashFolder / name).st_mode & ALLPERMS, 0700U) << name;
}

TEST_F(TrashFile, TrashesALinkAndNotItsTarget) {
  write(folder / "item", "item");
  fs::create_symlink(folder / "item", folder / "link");
  expectSuccess(trash(folder / "link"));
  EXPECT_TRUE(fs::is_symlink(trashFolder / "files/link"));
  EXPECT_EQ(read(folder / "item"), "item");
}

TEST_F(TrashFile, IsListedAndRestoredByATrashProgram) {
  if (!isThere("/usr/bin/trash-list")) GTEST_SKIP() << "trash-cli is not installed";
  makeBundle(folder / "App \xc3\xa9.app", "1");
  const auto wanted = snapshot(folder / "App \xc3\xa9.app");
  expectSuccess(trash(folder / "App \xc3\xa9.app"));
  const auto path = (folder / "App \xc3\xa9.app").string();
  EXPECT_THAT(ask("/usr/bin/trash-list"), ::testing::HasSubstr(path));
  ask("sh -c 'echo 0 | /usr/bin/trash-restore \"" + path + "\"'");
  EXPECT_EQ(snapshot(path), wanted);
  EXPECT_TRUE(fs::is_empty(trashFolder / "info"));
}

TEST_F(TrashFile, LeavesNoInfoWhenTheItemCannotGo) {
  command = withFaults({"renameat2:error=EIO"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  write(folder / "item", "item");
  expectRefusal(trash(folder / "item"), "Trash");
  EXPECT_EQ(read(folder / "item"), "item");
  EXPECT_TRUE(fs::is_empty(trashFolder / "info"));
}

TEST(TrashName, PutsTheNumberBeforeTheExtension) {
  EXPECT_EQ(AssistantTool::trashName("App.app", 1), "App.app");
  EXPECT_EQ(AssistantTool::trashName("App.app", 2), "App 2.app");
  EXPECT_EQ(AssistantTool::trashName("App", 12), "App 12");
  EXPECT_EQ(AssistantTool::trashName(".hidden", 2), ".hidden 2");
}

TEST(TrashName, LeavesRoomForTheInfoFile) {
  for (const unsigned number : {1U, 2U, 9999U}) {
    const auto name = AssistantTool::trashName(std::string(250, 'x') + ".app", number);
    EXPECT_LE(name.size() + std::string(".trashinfo").size(), 255U);
    EXPECT_TRUE(name.ends_with(".app"));
  }
}

TEST(TrashName, IsNotCutInTheMiddleOfACharacter) {
  std::string name;
  for (int i = 0; i < 125; ++i) name += "\xc3\xa9";
  for (const auto* extension : {"", ".a", ".ab"}) {
    const auto cut = AssistantTool::trashName(name + extension, 2);
    EXPECT_EQ(cut.find(' ') % 2, 0U) << cut;
  }
}

TEST(TrashPath, IsPercentEncoded) {
  EXPECT_EQ(AssistantTool::percentEncoded("/a-b_c.d~e/f g%h\n\xc3\xa9"), "/a-b_c.d~e/f%20g%25h%0A%C3%A9");
}

}  // namespace
}  // namespace tests::tool
