// The tool itself under an administrator's keys: a replacement is verified before anything of the old item is touched.
#include "protocol/PolicyFile.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

class SignedReplacement : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!overlay("/etc", "/etc")) GTEST_SKIP() << "needs an overlay over /etc";
    fs::create_directories("/etc/kelto/trust.d");
    for (const char* path : {"/etc/kelto", "/etc/kelto/trust.d"}) fs::permissions(path, fs::perms(0755));
    writeWithMode("/etc/kelto/trust.d/publisher.pub", publisher.file());
    makeVersion(installed, "1.0");
    makeVersion(download, "2.0");
  }
  static void makeVersion(const fs::path& bundle, const std::string& version) {
    writeWithMode(bundle / "Contents/Info.plist", informationList("com.example.App", version));
    writeWithMode(bundle / "Contents/Linux/Controller", "program " + version, 0755);
  }
  void signDownload() {
    ASSERT_TRUE(runs(KELTO_BIN_DIR "/kelto-manifest " + shellWord(download)));
    publisher.sign(download / "Contents/_Signature/manifest");
  }
  [[nodiscard]] std::string installedProgram() const { return read(installed / "Contents/Linux/Controller"); }

  tests::TemporaryFolder keys;
  KeyPair publisher{keys, "publisher"};
  const fs::path installed = folder / "Applications/App.app";
  const fs::path download = folder / "Download/App.app";
};

TEST_F(SignedReplacement, TakesABundleAsItsPublisherSignedIt) {
  signDownload();
  expectSuccess(replace(installed, download));
  EXPECT_EQ(installedProgram(), "program 2.0");
}

// A program that holds a file of the download open could change it after it was verified.
TEST_F(SignedReplacement, InstallsNoFileOfTheDownloadItself) {
  signDownload();
  const auto offered = statusOf(download / "Contents/Linux/Controller");
  expectSuccess(replace(installed, download));
  EXPECT_NE(statusOf(installed / "Contents/Linux/Controller").st_ino, offered.st_ino);
}

TEST_F(SignedReplacement, RefusesABundleWithoutASignature) {
  expectRefusal(replace(installed, download), "is not signed");
  EXPECT_EQ(installedProgram(), "program 1.0");
}

TEST_F(SignedReplacement, RefusesABundleThatWasChangedAfterItWasSigned) {
  signDownload();
  writeWithMode(download / "Contents/Linux/Controller", "program 6.6", 0755);
  expectRefusal(replace(installed, download), "Contents/Linux/Controller");
  EXPECT_EQ(installedProgram(), "program 1.0");
}

TEST_F(SignedReplacement, LetsAnUnsignedBundleThroughOnlyWithTheRightThatThePolicyAsksFor) {
  writeWithMode(protocol::policyFilePath, "unsigned = ask\n");
  expectRefusal(replace(installed, download), "nobody granted that");
  EXPECT_EQ(installedProgram(), "program 1.0");
  // The broker says so, for a session that holds the right.
  environment.push_back(std::string(protocol::anyProgramVariable) + "=1");
  expectSuccess(replace(installed, download));
  EXPECT_EQ(installedProgram(), "program 2.0");
}

TEST_F(SignedReplacement, BelievesNobodyButTheBrokerThatTheRightIsHeld) {
  writeWithMode(protocol::policyFilePath, "unsigned = ask\n");
  // Not root's own process: it was not started by the broker of the machine, so its environment is its caller's.
  giveToUser(folder);
  for (const char* name : {"answers", "Applications", "Download"}) {
    giveToUser(folder / name);
    for (const auto& entry : fs::recursive_directory_iterator(folder / name)) giveToUser(entry.path());
  }
  const auto number = std::to_string(invokingUser);
  command = {"/usr/bin/setpriv", "--reuid", number, "--regid", number, "--clear-groups", toolProgram};
  environment.push_back(std::string(protocol::anyProgramVariable) + "=1");
  expectRefusal(replace(installed, download), "nobody granted that");
}

TEST_F(SignedReplacement, LetsAnUnsignedBundleThroughWhenThePolicyAllowsIt) {
  writeWithMode(protocol::policyFilePath, "unsigned = allow\n");
  expectSuccess(replace(installed, download));
  EXPECT_EQ(installedProgram(), "program 2.0");
}

TEST_F(SignedReplacement, BelievesNoPolicyThatOthersCanWrite) {
  writeWithMode(protocol::policyFilePath, "unsigned = allow\n", 0666);
  expectRefusal(replace(installed, download), "is not signed");
}

TEST_F(SignedReplacement, RefusesALowerVersionUnlessThePolicyAllowsIt) {
  makeVersion(installed, "3.0");
  signDownload();
  expectRefusal(replace(installed, download), "a downgrade is not allowed");
  EXPECT_EQ(installedProgram(), "program 3.0");
  writeWithMode(protocol::policyFilePath, "downgrades = allow\n");
  expectSuccess(replace(installed, download));
  EXPECT_EQ(installedProgram(), "program 2.0");
}

TEST_F(SignedReplacement, RefusesAnotherBundleThanTheInstalledOne) {
  writeWithMode(installed / "Contents/Info.plist", informationList("com.example.Other", "1.0"));
  signDownload();
  expectRefusal(replace(installed, download), "another bundle is installed");
  EXPECT_EQ(installedProgram(), "program 1.0");
}

// The most memory that the tool held, in bytes, when it ends; it is stopped there to be looked at.
long peakMemoryOf(pid_t tool) {
  int status = 0;
  ::waitpid(tool, &status, 0);
  ::ptrace(PTRACE_SETOPTIONS, tool, nullptr, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
  long kilobytes = 0;
  for (int signal = 0; ::ptrace(PTRACE_CONT, tool, nullptr, signal) == 0; signal = WSTOPSIG(status)) {
    if (::waitpid(tool, &status, 0) != tool || !WIFSTOPPED(status)) break;
    if (status >> 8 != (SIGTRAP | (PTRACE_EVENT_EXIT << 8))) continue;
    const auto text = read("/proc/" + std::to_string(tool) + "/status");
    kilobytes = std::stol(text.substr(text.find("VmHWM:") + 6));
    status = 0;
  }
  return kilobytes * 1024;
}

TEST_F(SignedReplacement, UsesAtMostEightMegabytesForABundleOfThousandsOfFiles) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need memory of their own";
#endif
  for (int i = 0; i < 3000; ++i) writeWithMode(download / "Contents/Resources" / std::to_string(i), "resource");
  writeWithMode(download / "Contents/Resources/large", std::string(32 << 20, 'x'));
  signDownload();
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const auto bytes = bytesOf({{protocol::commandKey, protocol::replaceItemCommand},
                              {protocol::sourcePathKey, download},
                              {protocol::destinationPathKey, installed}});
  ASSERT_EQ(::write(ends[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  const long peak = peakMemoryOf(spawn(command, ends[1], environment, true));
  ::close(ends[1]);
  ::close(ends[0]);
  EXPECT_EQ(read(result), protocol::successVerdict);
  EXPECT_GT(peak, 0);
  EXPECT_LE(peak, 8L << 20);
  std::printf("peak %ld bytes\n", peak);
}

}  // namespace
}  // namespace tests::tool
