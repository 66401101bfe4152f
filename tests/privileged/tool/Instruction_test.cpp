#include <sys/socket.h>
#include <sys/un.h>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

using InstructionArchive::archivedData;
using InstructionArchive::Instructions;

// Every refusal leaves the tree as it was.
class Refusal : public ToolTest {
 protected:
  Refusal() {
    makeBundle(app, "1");
    makeBundle(newApp, "2");
    before = snapshot(folder);
  }
  ~Refusal() override { EXPECT_EQ(snapshot(folder), before); }

  Instructions removeApp() const {
    return {{protocol::commandKey, protocol::removeFileCommand},
            {protocol::filePathKey, app},
            {protocol::resultPathKey, result}};
  }
  Answer send(const std::string& bytes) { return runWithBytes(command, bytes, environment, true); }
  Answer sendInstruction(const Instructions& instructions) { return send(framed(archivedData(instructions))); }

  fs::path app = folder / "App.app";
  fs::path newApp = folder / "New/App.app";
  std::map<std::string, std::string> before;
};

TEST_F(Refusal, NoInputAtAll) { expectRefusal(send(""), "ends early"); }
TEST_F(Refusal, ALengthOfSevenBytes) { expectRefusal(send(std::string(7, '\1')), "ends early"); }
TEST_F(Refusal, ALengthWithoutAnArchive) { expectRefusal(send(std::string("\x40\0\0\0\0\0\0\0", 8)), "ends early"); }
TEST_F(Refusal, ALengthOfZero) { expectRefusal(send(std::string(8, '\0')), "malformed"); }

TEST_F(Refusal, ATruncatedArchive) {
  const auto bytes = framed(archivedData(removeApp()));
  expectRefusal(send(bytes.substr(0, bytes.size() - 1)), "ends early");
}

TEST_F(Refusal, AnOversizedLengthIsRefusedWithoutWaitingForItsBytes) {
  std::uint64_t length = InstructionArchive::maximumBytes + 1;
  const std::string bytes(reinterpret_cast<const char*>(&length), sizeof length);
  expectRefusal(runWithBytes(command, bytes, environment), "too long");
}

TEST_F(Refusal, TheLargestLength) { expectRefusal(send(std::string(8, '\xff')), "too long"); }
TEST_F(Refusal, AMalformedArchive) { expectRefusal(send(framed("not an archive")), "malformed"); }
TEST_F(Refusal, BytesInTheLengthThatFollowTheDictionary) {
  expectRefusal(send(framed(archivedData(removeApp()) + "x")), "malformed");
}

TEST_F(Refusal, AnUnknownCommand) {
  expectRefusal(run({{protocol::commandKey, "format disk"}, {protocol::filePathKey, app}}), "unknown command");
}
TEST_F(Refusal, ACommandInCapitals) {
  expectRefusal(run({{protocol::commandKey, "Remove File"}, {protocol::filePathKey, app}}), "unknown command");
}
TEST_F(Refusal, NoCommand) { expectRefusal(run({{protocol::filePathKey, app}}), "\"command\""); }
TEST_F(Refusal, AReasonWithALineFeedStaysOneLine) { expectRefusal(run({{protocol::commandKey, "a\nb"}}), "a?b"); }
TEST_F(Refusal, AVeryLongReasonStaysShort) {
  const auto answer = run({{protocol::commandKey, std::string(5000, 'x')}});
  expectRefusal(answer, "unknown command");
  EXPECT_LT(answer.text.size(), 512U);
}

struct Missing {
  const char* command;
  const char* key;
};
class MissingKey : public Refusal, public ::testing::WithParamInterface<Missing> {};
TEST_P(MissingKey, IsRefused) {
  Instructions instructions{{protocol::commandKey, GetParam().command}};
  const bool two = std::string(GetParam().key) != protocol::filePathKey;
  if (two && std::string(GetParam().key) != protocol::sourcePathKey)
    instructions.emplace_back(protocol::sourcePathKey, newApp);
  if (two && std::string(GetParam().key) != protocol::destinationPathKey)
    instructions.emplace_back(protocol::destinationPathKey, app);
  expectRefusal(run(instructions), "no \"" + std::string(GetParam().key) + "\"");
}
INSTANTIATE_TEST_SUITE_P(Refusal, MissingKey,
                         ::testing::Values(Missing{protocol::trashFileCommand, protocol::filePathKey},
                                           Missing{protocol::removeFileCommand, protocol::filePathKey},
                                           Missing{protocol::upgradeServerCommand, protocol::filePathKey},
                                           Missing{protocol::copyFileCommand, protocol::sourcePathKey},
                                           Missing{protocol::copyFileCommand, protocol::destinationPathKey},
                                           Missing{protocol::moveFileCommand, protocol::sourcePathKey},
                                           Missing{protocol::moveFileCommand, protocol::destinationPathKey},
                                           Missing{protocol::replaceItemCommand, protocol::sourcePathKey},
                                           Missing{protocol::replaceItemCommand, protocol::destinationPathKey}));

TEST_F(Refusal, NoResultPath) {
  expectRefusal(sendInstruction({{protocol::commandKey, protocol::removeFileCommand}, {protocol::filePathKey, app}}),
                std::string("\"") + protocol::resultPathKey + "\"");
}

class AllCommands : public Refusal, public ::testing::WithParamInterface<const char*> {
 protected:
  Answer runOn(const std::string& path) {
    const std::string name = GetParam();
    if (name == protocol::trashFileCommand || name == protocol::removeFileCommand ||
        name == protocol::upgradeServerCommand) {
      return run({{protocol::commandKey, name}, {protocol::filePathKey, path}});
    }
    return run({{protocol::commandKey, name}, {protocol::sourcePathKey, newApp}, {protocol::destinationPathKey, path}});
  }
};
TEST_P(AllCommands, RefuseARelativePath) { expectRefusal(runOn("App.app"), "not absolute"); }
TEST_P(AllCommands, RefuseAnEmptyPath) { expectRefusal(runOn(""), "not absolute"); }
TEST_P(AllCommands, RefuseTheFolderAbove) { expectRefusal(runOn(folder / "New/../App.app"), "\"..\""); }
TEST_P(AllCommands, RefuseTheFolderAboveAtTheEnd) { expectRefusal(runOn((app / "..").string()), "\"..\""); }
TEST_P(AllCommands, RefuseTheSameFolder) { expectRefusal(runOn(folder.string() + "/./App.app"), "\".\""); }
TEST_P(AllCommands, RefuseTheRoot) { expectRefusal(runOn("/"), "/"); }
TEST_P(AllCommands, RefuseTheRootInDisguise) { expectRefusal(runOn("///"), "/"); }
TEST_P(AllCommands, RefuseAMountRoot) { expectRefusal(runOn("/proc"), "mounted"); }
TEST_P(AllCommands, RefuseWhatHoldsAMount) { expectRefusal(runOn("/dev"), "mounted"); }
TEST_P(AllCommands, RefuseAPathThatIsTooLong) { expectRefusal(runOn("/" + std::string(5000, 'x')), "not valid"); }
TEST_P(AllCommands, RefuseAPathThroughAFile) { expectRefusal(runOn(app / "Contents/Info.plist/x"), "not a folder"); }
TEST_P(AllCommands, RefuseAPathThroughAMissingFolder) { expectRefusal(runOn(folder / "Missing/App.app"), "cannot open"); }
INSTANTIATE_TEST_SUITE_P(Refusal, AllCommands,
                         ::testing::Values(protocol::trashFileCommand, protocol::removeFileCommand,
                                           protocol::upgradeServerCommand, protocol::copyFileCommand,
                                           protocol::moveFileCommand, protocol::replaceItemCommand));

TEST_F(Refusal, NothingToRemove) { expectRefusal(remove(folder / "Missing"), "nothing is at"); }
TEST_F(Refusal, NothingToTrash) { expectRefusal(trash(folder / "Missing"), "nothing is at"); }
TEST_F(Refusal, NothingToReplaceWith) { expectRefusal(replace(app, folder / "Missing"), "nothing is at"); }
TEST_F(Refusal, ReplacingAnItemByItself) { expectRefusal(replace(app, app), "same"); }
TEST_F(Refusal, ReplacingByWhatIsInside) { expectRefusal(replace(app, app / "Contents"), "inside"); }
TEST_F(Refusal, ReplacingWhatIsInsideTheSource) { expectRefusal(replace(app / "Contents", app), "inside"); }
TEST_F(Refusal, MovingAFolderIntoItself) { expectRefusal(move(app, app / "Contents/App.app"), "inside"); }
TEST_F(Refusal, CopyingAFolderIntoItself) { expectRefusal(copy(app, app / "Contents/App.app"), "inside"); }
TEST_F(Refusal, MovingOverSomething) { expectRefusal(move(newApp, app), "already"); }
TEST_F(Refusal, CopyingOverSomething) { expectRefusal(copy(newApp, app), "already"); }

class RefusedResultFile : public ToolTest {
 protected:
  void expectRefused(const fs::path& path, const std::string& reason) {
    const auto answer = runWithBytes(command,
                                     framed(archivedData({{protocol::commandKey, protocol::removeFileCommand},
                                                          {protocol::filePathKey, item},
                                                          {protocol::resultPathKey, path}})),
                                     environment);
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.text, ::testing::HasSubstr(reason));
    EXPECT_EQ(read(item), "item");
  }
  RefusedResultFile() { write(item, "item"); }
  fs::path item = folder / "item";
};

TEST_F(RefusedResultFile, ThatDoesNotExist) {
  expectRefused(folder / "missing", "cannot open");
  EXPECT_FALSE(isThere(folder / "missing"));
}
TEST_F(RefusedResultFile, ThatIsALink) {
  fs::create_symlink(result, folder / "link");
  expectRefused(folder / "link", "link");
  EXPECT_EQ(read(result), "");
}
TEST_F(RefusedResultFile, ThatIsAFolder) {
  fs::create_directory(folder / "folder");
  expectRefused(folder / "folder", "not a regular file");
}
TEST_F(RefusedResultFile, ThatIsAPipeIsRefusedWithoutWaitingForAReader) {
  ::mkfifo((folder / "pipe").c_str(), 0666);
  expectRefused(folder / "pipe", "not a regular file");
}
TEST_F(RefusedResultFile, ThatIsADevice) { expectRefused("/dev/null", "not a regular file"); }
TEST_F(RefusedResultFile, ThatHasTwoNames) {
  fs::create_hard_link(result, folder / "second");
  expectRefused(result, "another name");
  EXPECT_EQ(read(result), "");
}
TEST_F(RefusedResultFile, ThatBelongsToSomeoneElse) {
  if (::geteuid() == 0) environment.emplace_back(std::string(protocol::invokingUserVariable) + "=65534");
  expectRefused(::geteuid() == 0 ? result : fs::path("/etc/hostname"), "someone else");
}
TEST_F(RefusedResultFile, InAFolderThatOthersCanEnterOrWrite) {
  for (const unsigned mode : {0701U, 0710U, 0702U, 0720U, 01777U}) {
    fs::permissions(result.parent_path(), fs::perms(mode));
    expectRefused(result, "others can enter");
    EXPECT_EQ(read(result), "") << std::oct << mode;
  }
}
TEST_F(RefusedResultFile, InAFolderOfSomeoneElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give its folder to another account";
  ASSERT_EQ(::chown(result.parent_path().c_str(), 65533, 65533), 0);
  ASSERT_EQ(::chown(result.c_str(), 65534, 65534), 0);
  environment.emplace_back(std::string(protocol::invokingUserVariable) + "=65534");
  expectRefused(result, "belongs to someone else");
}
TEST_F(RefusedResultFile, ThatIsNotEmpty) {
  write(result, protocol::successVerdict);
  expectRefused(result, "not empty");
}
TEST_F(RefusedResultFile, ThatIsNamedRelatively) { expectRefused("result", "not absolute"); }
TEST_F(RefusedResultFile, WhenTheInvokingUserIsNotANumber) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root takes the invoking user from its environment";
  environment.emplace_back(std::string(protocol::invokingUserVariable) + "=root");
  expectRefused(result, "not known");
}

TEST_F(RefusedResultFile, ThatIsTheOutputFileToo) {
  expectRefusal(run({{protocol::commandKey, protocol::removeFileCommand},
                     {protocol::filePathKey, item},
                     {protocol::outputPathKey, result}}),
                "same file");
  EXPECT_EQ(read(item), "item");
}
TEST_F(RefusedResultFile, AnOutputFileThatIsALink) {
  write(folder / "output", "");
  fs::create_symlink("output", folder / "link");
  expectRefusal(run({{protocol::commandKey, protocol::removeFileCommand},
                     {protocol::filePathKey, item},
                     {protocol::outputPathKey, folder / "link"}}),
                "link");
  EXPECT_EQ(read(item), "item");
}

class Links : public ToolTest {
 protected:
  Links() {
    write(real / "item", "item");
    fs::create_directory(holder);
    fs::create_directory_symlink(real, holder / "link");
  }
  fs::path real = folder / "real";
  fs::path holder = folder / "holder";
};

TEST_F(Links, InAFolderThatOnlyTheUserWritesAreFollowed) {
  expectSuccess(remove(holder / "link/item"));
  EXPECT_FALSE(isThere(real / "item"));
}
TEST_F(Links, InAFolderThatTheGroupWritesAreRefused) {
  fs::permissions(holder, fs::perms(0770));
  expectRefusal(remove(holder / "link/item"), "others can write");
  EXPECT_EQ(read(real / "item"), "item");
}
TEST_F(Links, InAFolderThatAllWriteAreRefused) {
  fs::permissions(holder, fs::perms(0777));
  expectRefusal(remove(holder / "link/item"), "others can write");
}
TEST_F(Links, InAFolderThatAllButTheGroupWriteAreRefused) {
  fs::permissions(holder, fs::perms(0757));
  expectRefusal(remove(holder / "link/item"), "others can write");
}
TEST_F(Links, InAStickyFolderAreRefused) {
  ::chmod(holder.c_str(), 01777);
  expectRefusal(remove(holder / "link/item"), "others can write");
}
TEST_F(Links, AtTheEndInAFolderThatOthersWriteAreRefused) {
  ::chmod(holder.c_str(), 01777);
  expectRefusal(remove(holder / "link"), "others can write");
  EXPECT_TRUE(isThere(holder / "link"));
}
TEST_F(Links, BehindALinkAreJudgedWhereTheyLie) {
  fs::create_directory_symlink(holder / "link", folder / "first");
  EXPECT_EQ(remove(folder / "first/missing").status, 1);
  fs::permissions(holder, fs::perms(0777));
  expectRefusal(remove(folder / "first/item"), "others can write");
}
TEST_F(Links, ThatLeadUpwardsAreFollowed) {
  fs::create_directory_symlink("../real", holder / "up");
  expectSuccess(remove(holder / "up/item"));
}
TEST_F(Links, InARingAreRefused) {
  fs::create_directory_symlink("b", holder / "a");
  fs::create_directory_symlink("a", holder / "b");
  expectRefusal(remove(holder / "a/item"), "too many");
}
TEST_F(Links, OfAnotherUserAreRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  ASSERT_EQ(::chown(holder.c_str(), 65534, 65534), 0);
  expectRefusal(remove(holder / "link/item"), "others can write");
}
TEST_F(Links, OfTheInvokingUserAreFollowedToFoldersOfTheirs) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  for (const auto& path : {holder, real}) ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chown(result.c_str(), 65534, 65534), 0);
  environment.emplace_back(std::string(protocol::invokingUserVariable) + "=65534");
  expectSuccess(remove(holder / "link/item"));
}

using Wire = ToolTest;

TEST_F(Wire, TheInstructionMayComeInPieces) {
  write(folder / "item", "item");
  const auto bytes = framed(archivedData({{protocol::commandKey, protocol::removeFileCommand},
                                          {protocol::filePathKey, folder / "item"},
                                          {protocol::resultPathKey, result}}));
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t child = spawn(command, ends[1], {});
  ::close(ends[1]);
  for (const char byte : bytes) ASSERT_EQ(::send(ends[0], &byte, 1, MSG_NOSIGNAL), 1);
  char answer[512];
  EXPECT_GT(::read(ends[0], answer, sizeof answer), 0);
  EXPECT_EQ(read(result), protocol::successVerdict) << "the verdict stands before anything is printed";
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
}

TEST_F(Wire, BytesAfterTheArchiveAreNotWaitedForNorRead) {
  write(folder / "item", "item");
  const auto bytes = framed(archivedData({{protocol::commandKey, protocol::removeFileCommand},
                                          {protocol::filePathKey, folder / "item"},
                                          {protocol::resultPathKey, result}}));
  expectSuccess(runWithBytes(command, bytes + "more", environment));
}

TEST_F(Wire, ACallerThatLeavesBeforeTheAnswerStillGetsItsVerdict) {
  write(folder / "item", "item");
  const auto bytes = framed(archivedData({{protocol::commandKey, protocol::removeFileCommand},
                                          {protocol::filePathKey, folder / "item"},
                                          {protocol::resultPathKey, result}}));
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t child = spawn(command, ends[1], {});
  ::close(ends[1]);
  ASSERT_EQ(::send(ends[0], bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(read(result), protocol::successVerdict);
}

TEST_F(Wire, TheOutputFileGetsASentence) {
  write(folder / "item", "item");
  write(folder / "output", "");
  expectSuccess(run({{protocol::commandKey, protocol::removeFileCommand},
                     {protocol::filePathKey, folder / "item"},
                     {protocol::outputPathKey, folder / "output"}}));
  EXPECT_EQ(read(folder / "output"), "removed " + (folder / "item").string());
}

TEST_F(Wire, AFailureWritesNothingIntoTheOutputFile) {
  write(folder / "output", "");
  expectRefusal(run({{protocol::commandKey, protocol::removeFileCommand},
                     {protocol::filePathKey, folder / "item"},
                     {protocol::outputPathKey, folder / "output"}}),
                "nothing");
  EXPECT_EQ(read(folder / "output"), "");
}

TEST_F(Wire, SlashesAtTheEndAndTwiceAreTolerated) {
  makeBundle(folder / "App.app", "1");
  expectSuccess(remove(folder.string() + "//App.app/"));
  EXPECT_FALSE(isThere(folder / "App.app"));
}

}  // namespace
}  // namespace tests::tool
