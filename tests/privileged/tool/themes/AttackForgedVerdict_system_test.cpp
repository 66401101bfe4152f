// Another account writes the tool's verdict before the tool does, so that the installer believes in an update that never
// was. Everything but the broker is real: the installer's library makes the files, the built tool runs as the user.
#include "platform/fake/FakePlatform.h"
#include "platform/linux/FileManager.h"
#include "privileged/KMAuthorization.h"
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

class RunningTool final : public platform::ByteStream {
 public:
  RunningTool(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) ::_exit(1);
    _stream = ends[0];
    _process = spawn(command, ends[1], environment);
    ::close(ends[1]);
  }
  ~RunningTool() override {
    ::close(_stream);
    ::waitpid(_process, nullptr, 0);
  }
  std::size_t write(const void* bytes, std::size_t length) override {
    const auto written = ::send(_stream, bytes, length, MSG_NOSIGNAL);
    return written > 0 ? static_cast<std::size_t>(written) : 0;
  }
  std::size_t read(void* buffer, std::size_t capacity) override {
    const auto got = ::read(_stream, buffer, capacity);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
  }

 private:
  int _stream = -1;
  pid_t _process = -1;
};

// The fake platform, but for its files, which are the user's own.
struct InstallersPlatform : platform::fake::FakeParts {
  platform::Linux::FileManager realFiles;
  platform::Platform platform = platform::fake::platformOf(*this, {.files = &realFiles});
  platform::Installation installation{platform};
};

enum class RuntimeFolder { Given, Missing };

class ForgedVerdict : public AttackGround, public ::testing::WithParamInterface<RuntimeFolder> {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    // Where everybody can run it, wherever the project lies.
    fs::create_directory(folder / "bin");
    fs::copy_file(command[0], folder / "bin/assistantTool");
    fs::create_directory(folder / "tmp");
    ASSERT_EQ(::chmod((folder / "tmp").c_str(), 01777), 0);
    fs::create_directories(folder / "run");
    fs::create_directory(folder / "run/user");
    fs::permissions(folder / "run/user", fs::perms(0700));
    giveToUser(folder / "run/user");
    app = home() / "Applications/App.app";
  }
  // One update as the installer does it; true when it is told that all went well.
  bool installerUpdates(const fs::path& source) const {
    return tests::resultAs(invokingUser, [&] {
             ::setenv("TMPDIR", (folder / "tmp").c_str(), 1);
             ::unsetenv("XDG_RUNTIME_DIR");
             if (GetParam() == RuntimeFolder::Given) ::setenv("XDG_RUNTIME_DIR", (folder / "run/user").c_str(), 1);
             InstallersPlatform installer;
             const auto tool = (folder / "bin/assistantTool").string();
             installer.bundles.main.resources["assistantTool"] = tool;
             installer.authorization.tool = [&] {
               return std::make_unique<RunningTool>(std::vector{tool},
                                                    std::vector<std::string>{"ASAN_OPTIONS=detect_leaks=0"});
             };
             const auto session = KMAuthorization::init(installer.platform);
             return std::string(session->replaceItemAtPath_withItemAtPath(app.string(), source.string()) ? "ok" : "failed");
           }) == "ok";
  }
  // Looks for files wherever it may, and writes the verdict into each that it may write.
  void forgeForEver(tests::SharedCount& rounds, tests::SharedCount& forged) const {
    for (;; rounds.increment()) {
      for (const auto& place : {folder / "tmp", folder / "run"}) forgeBelow(place, 2, forged);
    }
  }
  static void forgeBelow(const fs::path& place, int levels, tests::SharedCount& forged) {
    std::error_code refused;
    for (auto entry = fs::directory_iterator(place, refused); entry != fs::directory_iterator(); entry.increment(refused)) {
      if (refused) return;
      const int file = ::open(entry->path().c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
      if (file < 0) {
        if (levels > 0) forgeBelow(entry->path(), levels - 1, forged);
        continue;
      }
      const std::string_view verdict = protocol::successVerdict;
      if (::pwrite(file, verdict.data(), verdict.size(), 0) > 0) forged.increment();
      ::close(file);
    }
  }

  fs::path app;
};

TEST_P(ForgedVerdict, ByAnotherAccountIsNotBelieved) {
  constexpr int rounds = 10;
  tests::SharedCount looks;
  tests::SharedCount forged;
  const tests::OtherProcess attacker(otherAccount, [&] { forgeForEver(looks, forged); });
  while (looks.value() == 0) continue;
  int installed = 0;
  int believed = 0;
  for (int round = 0; round < rounds; ++round) {
    fs::remove_all(app);
    makeBundle(app, "1");
    giveToUser(app.parent_path());
    giveTree(app, invokingUser);
    const auto source = download("App.app", "2");
    const bool told = installerUpdates(source);
    const bool isInstalled = versionOf(app) == "version 2";
    EXPECT_EQ(told, isInstalled) << "in round " << round;
    if (isInstalled) ++installed;
    if (told && !isInstalled) ++believed;
  }
  std::printf("%d of %d updates installed, %d forged verdicts believed, %d looks, %d written\n", installed, rounds,
              believed, looks.value(), forged.value());
  EXPECT_GT(looks.value(), rounds);
  EXPECT_EQ(installed, rounds);
  EXPECT_EQ(forged.value(), 0);
}

INSTANTIATE_TEST_SUITE_P(RuntimeFolder, ForgedVerdict, ::testing::Values(RuntimeFolder::Given, RuntimeFolder::Missing),
                         [](const auto& given) { return given.param == RuntimeFolder::Given ? "Given" : "Missing"; });

}  // namespace
}  // namespace tests::tool
