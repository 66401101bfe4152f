#include "tests/platform/linux/AuthorizationBroker.h"

namespace tests::authorization {
namespace {

TEST_F(AuthorizationBroker, RunsAToolWithNothingInheritedButTheUsersDataFolder) {
  ::setenv("KELTO_SECRET", "not for the tool", 1);
  const auto stream = started(probe());
  say(*stream, "report");
  const std::string user = std::to_string(::getuid());
  const std::string said = readAll(*stream);
  const std::string jobSetting = std::string("environment ") + protocol::jobVariable + "=";
  const auto job = said.find(jobSetting);
  ASSERT_NE(job, std::string::npos) << said;
  const auto end = said.find('\n', job);
  EXPECT_EQ(end - job, jobSetting.size() + 32) << "a number that no other broker gives";
  EXPECT_EQ(said.substr(0, job) + said.substr(end + 1),
            std::string("environment PATH=/usr/sbin:/usr/bin:/sbin:/bin\nenvironment LANG=C.UTF-8\nenvironment ") +
                protocol::invokingUserVariable + "=" + user +
                "\nenvironment XDG_DATA_HOME=/data of mine\ndescriptor 0 socket\ndescriptor 1 socket\ndescriptor 2 "
                "/dev/null\numask 22\nfolder /\nnew privileges none\nsession own\nuser " +
                user + " " + user + "\narguments 0\n");
  ::unsetenv("KELTO_SECRET");
}

TEST_F(AuthorizationBroker, RunsNoToolWithoutTheRight) {
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.execute(controller.create(), probe(), stream), errAuthorizationDenied);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(AuthorizationBroker, RunsNoToolAfterTheRightWasDestroyed) {
  const AuthorizationRef authorization = authorized(controller);
  ASSERT_EQ(installer.services.free(adopted(authorization), kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, KnowsNoOptionsForATool) {
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.services.executeWithPrivileges(authorized(controller), probe(), 1, stream),
            errAuthorizationInternal);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(AuthorizationBroker, RefusesAToolThatTheGroupMayWrite) {
  expectRefused(probe(0775), "writable by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolThatEveryoneMayWrite) {
  expectRefused(probe(0757), "writable by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolThatIsNotExecutable) { expectRefused(probe(0644), "not executable"); }

TEST_F(AuthorizationBroker, RefusesASetUserIdTool) { expectRefused(probe(04755), "set-user-id"); }

TEST_F(AuthorizationBroker, RefusesAFolder) { expectRefused(folderAmongTools(), "not a regular file"); }

TEST_F(AuthorizationBroker, RefusesAPipeWithoutWaitingForIt) {
  const std::string path = tools.path("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0700), 0);
  expectRefused(path, "not a regular file");
}

TEST_F(AuthorizationBroker, RefusesAMissingTool) { expectRefused(tools.path("missing"), "cannot be opened"); }

TEST_F(AuthorizationBroker, RefusesAFileThatIsNotAProgram) {
  const std::string path = tools.path("text");
  std::ofstream(path) << "not a program";
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  expectRefused(path, "cannot be run");
}

TEST_F(AuthorizationBroker, RefusesAToolOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file that belongs to somebody else";
  const auto path = probe();
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  expectRefused(path, "belongs to another user", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAProgramThatLiesInNoFolderForTools) {
  expectRefused("/bin/sh", "lies in no folder for tools", errAuthorizationDenied);
  const auto own = bus.folder() / "probe";
  std::filesystem::copy_file(probe(), own);
  expectRefused(own, "lies in no folder for tools", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolWhoseFolderOthersCanWrite) {
  const auto path = probe();
  ASSERT_EQ(::chmod(tools.path().c_str(), 01777), 0);
  expectRefused(path, "can be written by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAProgramThatHasTheNameOfAToolElsewhere) {
  probe();
  const auto own = bus.folder() / "probe";
  std::filesystem::copy_file("/bin/sh", own);
  expectRefused(own, "lies in no folder for tools", errAuthorizationDenied);
}

// How many bytes the first two reads give.
std::pair<std::size_t, std::size_t> twoReads(ByteStream& stream) {
  char chunk[512];
  const auto first = stream.read(chunk, sizeof chunk);
  return {first, stream.read(chunk, sizeof chunk)};
}

TEST_F(AuthorizationBroker, SevenHundredBytesInOneGoAreReadAs512And188) {
  const auto stream = started(probe());
  say(*stream, "print 700");
  EXPECT_EQ(twoReads(*stream), std::pair(512UL, 188UL));
}

TEST_F(AuthorizationBroker, FiveHundredAndTwelveBytesAreFollowedByTheEnd) {
  const auto stream = started(probe());
  say(*stream, "print 512");
  EXPECT_EQ(twoReads(*stream), std::pair(512UL, 0UL));
}

TEST_F(AuthorizationBroker, AHundredBytesBeforeAPauseAreReadAlone) {
  const auto stream = started(probe());
  say(*stream, "two 100 50");
  char chunk[512];
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 100U);
  say(*stream, "go on");
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 50U);
}

TEST_F(AuthorizationBroker, WritingToAToolThatEndedIsShortAndHarmless) {
  const auto stream = started(probe());
  say(*stream, "print 1");
  readAll(*stream);
  EXPECT_EQ(stream->write("more", 4), 0U);
}

TEST_F(AuthorizationBroker, EveryCallAndEveryReadAndWriteGoesThroughTheBlockingCall) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(controller.blockingCall.count, 3);  // connect, create, copy
  std::unique_ptr<ByteStream> stream;
  ASSERT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationSuccess);
  EXPECT_EQ(controller.blockingCall.count, 5);  // open, execute
  say(*stream, "print 1");
  char chunk[512];
  stream->read(chunk, sizeof chunk);
  EXPECT_EQ(controller.blockingCall.count, 7);
}

TEST_F(AuthorizationBroker, RunsABoundedNumberOfToolsAtOnceAndReapsThem) {
  const auto path = probe();
  const AuthorizationRef authorization = authorized(controller);
  std::vector<std::unique_ptr<ByteStream>> streams(9);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(controller.execute(authorization, path, streams[i]), errAuthorizationSuccess);
  EXPECT_EQ(controller.execute(authorization, path, streams[8]), errAuthorizationToolExecuteFailure);
  streams[0].reset();
  EXPECT_TRUE(
      tests::eventually([&] { return controller.execute(authorization, path, streams[8]) == errAuthorizationSuccess; }));
}

}  // namespace
}  // namespace tests::authorization
