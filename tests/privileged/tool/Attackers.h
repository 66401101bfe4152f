#pragma once
// For tests: programs that change everything under the tool's feet, again and again, while it works for their user.
#include <dirent.h>
#include <grp.h>
#include <linux/fs.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/TreeState.h"

namespace tests::tool {

class Attackers : public NamespaceTest {
 protected:
  static constexpr uid_t otherUser = 54321;
  static constexpr const char* secretText = "nobody but root reads this";

  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    // Where a look at a file leaves a trace.
    ASSERT_EQ(::mount("test", volume("arena").c_str(), "tmpfs", MS_STRICTATIME, "mode=755"), 0);
    canary = folder / "arena/canary";
    for (const char* name : {"secret", "Info.plist", "App.app/Contents/Info.plist", "files/App.app/file", "info/file"})
      write(canary / name, secretText);
    for (const char* name : {"secret", "Info.plist", "App.app/Contents/Info.plist"}) ::chmod((canary / name).c_str(), 0600);
    write(canary / "open", "");
    ::chmod((canary / "open").c_str(), 0644);
    _guarded = {canary};
    for (const auto& entry : fs::recursive_directory_iterator(canary)) _guarded.push_back(entry.path());
    // So that the attackers' own looks leave no traces.
    for (const auto& path : _guarded) {
      if (fs::is_directory(path)) ::chmod(path.c_str(), 0711);
    }
    makeGround(folder / "arena/user", invokingUser);
    makeGround(folder / "arena/other", otherUser);
    ::chmod((folder / "arena/other").c_str(), 0777);
    setHome(folder / "arena/user/home");
    _counters = static_cast<Counters*>(
        ::mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  }
  void TearDown() override {
    stop();
    NamespaceTest::TearDown();
  }

  // Jobs of all kinds for so long; afterwards nothing of root's is changed, was read, or lies where others can read it.
  void attackFor(std::chrono::seconds time) {
    const auto contents = treeOf(canary);
    const auto before = looks();
    for (const auto& [ground, user] : grounds()) start(ground, user, true);
    for (const auto& [ground, user] : grounds()) start(ground, user, false);
    const auto end = std::chrono::steady_clock::now() + time;
    std::map<std::string, std::pair<int, int>> jobs;
    while (std::chrono::steady_clock::now() < end) {
      const auto command = runSomeJob();
      const bool isOk = _lastStatus == 0;
      ++(isOk ? jobs[command].first : jobs[command].second);
      if (looks() == before) continue;
      ADD_FAILURE() << "something of root's was touched by: " << command << ": " << _lastText;
      break;
    }
    stop();
    EXPECT_EQ(treeOf(canary), contents);
    expectNoSecretOutside();
    std::printf("%llu swaps\n", static_cast<unsigned long long>(_counters->swaps));
    for (const auto& [command, results] : jobs)
      std::printf("%-15s %6d done %6d refused or failed\n", command.c_str(), results.first, results.second);
    EXPECT_GT(_counters->swaps, 100U);
    EXPECT_EQ(jobs.size(), 5U);
  }

  // One swap exactly at each `every`th call of each kind of job, of each name in turn; undone before the next call, or not.
  // Every job's instruction names the same things; `swaps` counts the runs.
  void swapAtEachCall(std::size_t every) {
    const auto ground = folder / "arena/user";
    _inner = 1;
    auto names = swappedNames;
    for (const char kind : {'d', 'f'}) names.push_back(innerName(0, kind));
    for (const std::string command : {protocol::replaceItemCommand, protocol::copyFileCommand, protocol::moveFileCommand,
                                      protocol::removeFileCommand, protocol::trashFileCommand}) {
      int runs = 0;
      for (const auto& name : names) {
        for (const bool isUndone : {true, false}) {
          for (std::size_t at = 1; swapAt(ground, command, name, at, isUndone); at += every) ++runs;
        }
      }
      std::printf("%-15s %6d runs\n", command.c_str(), runs);
      EXPECT_GT(runs, 0);
    }
  }

  fs::path canary;

 private:
  inline static const std::vector<std::string> swappedNames{"src",
                                                            "dst",
                                                            "src/App.app",
                                                            "src/App.app/Contents",
                                                            "src/App.app/Contents/Info.plist",
                                                            "dst/App.app",
                                                            "dst/App.app/Contents",
                                                            "home/.local",
                                                            "home/.local/share/Trash",
                                                            "home/.local/share/Trash/files",
                                                            "home/.local/share/Trash/info",
                                                            "result"};
  static bool exchange(const fs::path& path) {
    return ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, (path.string() + "~").c_str(), RENAME_EXCHANGE) == 0;
  }
  // False when the job makes fewer calls than that.
  bool swapAt(const fs::path& ground, const std::string& command, const std::string& name, std::size_t at, bool isUndone) {
    fs::remove_all(ground);
    makeGround(ground, invokingUser);
    // Across file systems the item is copied, which makes the most calls.
    InstructionArchive::Instructions job{{protocol::commandKey, command}, {protocol::resultPathKey, ground / "result"}};
    if (command == protocol::trashFileCommand || command == protocol::removeFileCommand) {
      InstructionArchive::setValueForKey(job, protocol::filePathKey, ground / "src/App.app");
    } else {
      InstructionArchive::setValueForKey(job, protocol::sourcePathKey, ground / "src/App.app");
      InstructionArchive::setValueForKey(
          job, protocol::destinationPathKey,
          ground / (command == protocol::replaceItemCommand ? "dst/App.app" : "dst/New.app"));
    }
    const auto before = looks();
    Meddler meddler{.meddle = [&] { exchange(ground / name); }};
    if (isUndone) meddler.undo = [&] { exchange(ground / name); };
    const auto traced =
        runWithFault({toolProgram}, framed(InstructionArchive::archivedData(job)), environment, {.at = at}, &meddler);
    const bool isTouched = looks() != before;
    EXPECT_FALSE(isTouched) << command << ", " << name << " at call " << at << ": " << traced.answer.text;
    return traced.calls >= at && !isTouched;
  }

  struct Counters {
    std::atomic<unsigned long long> swaps;
  };
  std::vector<std::pair<fs::path, uid_t>> grounds() const {
    return {{folder / "arena/user", invokingUser}, {folder / "arena/other", otherUser}};
  }
  // Everything that the jobs name, and beside each thing a link to something of root's that it is exchanged with.
  void makeGround(const fs::path& ground, uid_t owner) const {
    fs::create_directories(ground);
    makeThings(ground);
    const auto link = [&](const std::string& name, const fs::path& target) {
      fs::create_symlink(target, ground / (name + "~"));
    };
    for (const char* name : {"src", "dst", "src/App.app", "dst/App.app", "home/.local", "home/.local/share/Trash"})
      link(name, canary);
    link("src/App.app/Contents", canary / "App.app/Contents");
    link("src/App.app/Contents/Info.plist", canary / "secret");
    link("home/.local/share/Trash/files", canary / "files");
    link("home/.local/share/Trash/info", canary / "info");
    link("result", canary / "open");
    giveTree(ground, {.user = owner, .group = owner});
  }
  // The tree at src/App.app is full of things that change from a file or a folder to a link and back.
  void makeThings(const fs::path& ground) const {
    for (const char* name : {"src", "dst"}) {
      if (!isThere(ground / name / "App.app/Contents/Info.plist"))
        write(ground / name / "App.app/Contents/Info.plist", "mine");
    }
    for (int i = 0; i < _inner; ++i) {
      const auto folder = ground / innerName(i, 'd');
      const auto file = ground / innerName(i, 'f');
      if (!isThere(folder)) write(folder / "App.app/file", "mine");
      if (!isThere(file)) write(file, "mine");
      if (!isThere(folder.string() + "~")) fs::create_symlink(canary, folder.string() + "~");
      if (!isThere(file.string() + "~")) fs::create_symlink(canary / "secret", file.string() + "~");
    }
    for (const char* name : {"files", "info"}) fs::create_directories(ground / "home/.local/share/Trash" / name);
    write(ground / "result", "");
  }
  static std::string innerName(int number, char kind) {
    return "src/App.app/Contents/inner/" + std::string(1, kind) + std::to_string(number);
  }

  void start(const fs::path& ground, uid_t user, bool swaps) {
    const pid_t child = ::fork();
    if (child != 0) return _attackers.push_back(child);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(1);
    ::umask(0);
    std::mt19937 random(user + (swaps ? 1 : 0));
    if (swaps) swapForEver(ground, random);
    meddleForEver(ground, random);
  }
  [[noreturn]] void swapForEver(const fs::path& ground, std::mt19937& random) const {
    using std::chrono::milliseconds;
    for (;;) {
      // By turns what is in the tree, so that jobs get that far, and the ways to it.
      const auto now = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
      const bool isInnerTurn = now / milliseconds(300) % 2 == 0;
      const auto number = static_cast<int>(random() % static_cast<unsigned>(_inner));
      const auto one = ground / (isInnerTurn ? innerName(number, random() % 2 == 0 ? 'd' : 'f')
                                             : swappedNames[random() % swappedNames.size()]);
      const auto other = one.string() + "~";
      for (int times = 0; times < 2; ++times) {
        if (::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0) ++_counters->swaps;
        for (auto spin = random() % 300; spin > 0; --spin) asm volatile("");
      }
    }
  }
  // Staging folders are moved away and links laid in their place; files get further names; what jobs took is made anew.
  [[noreturn]] void meddleForEver(const fs::path& ground, std::mt19937& random) const {
    for (unsigned long long round = 0;; ++round) {
      for (const char* name : {"src", "dst", "home/.local/share/Trash/files", "home/.local/share/Trash"}) {
        DIR* folder = ::opendir((ground / name).c_str());
        if (folder == nullptr) continue;
        while (const dirent* entry = ::readdir(folder)) {
          if (std::strncmp(entry->d_name, ".kelto-staging-", 15) != 0) continue;
          const auto path = ground / name / entry->d_name;
          const auto away = ground / ("away" + std::to_string(random() % 8));
          if (::rename(path.c_str(), away.c_str()) == 0 && ::symlink(canary.c_str(), path.c_str()) == 0) ++_counters->swaps;
        }
        ::closedir(folder);
      }
      const auto linked = ground / "src/App.app/Contents/linked";
      ::unlink(linked.c_str());
      for (const auto& target : {canary / "secret", canary / "open", ground / "src/App.app/Contents/Info.plist"}) {
        if (::link(target.c_str(), linked.c_str()) == 0) ++_counters->swaps;
      }
      if (round % 4 == 0) repair(ground);
    }
  }
  void repair(const fs::path& ground) const {
    try {
      makeThings(ground);
    } catch (const fs::filesystem_error&) {
      // Something is a link just now.
    }
  }
  void stop() {
    for (const pid_t attacker : _attackers) {
      ::kill(attacker, SIGKILL);
      ::waitpid(attacker, nullptr, 0);
    }
    _attackers.clear();
  }

  std::string runSomeJob() {
    const std::vector<std::string> commands{protocol::replaceItemCommand, protocol::copyFileCommand,
                                            protocol::moveFileCommand, protocol::removeFileCommand,
                                            protocol::trashFileCommand};
    const auto ground = grounds()[_random() % 2].first;
    const auto& command = commands[_random() % commands.size()];
    const auto source = (ground / (_random() % 4 == 0 ? "dst" : "src") / "App.app").string();
    const auto name = _random() % 2 == 0 ? "App.app" : "New " + std::to_string(_random() % 1000) + ".app";
    const auto destination = (ground / (_random() % 4 == 0 ? "src" : "dst") / name).string();
    const auto resultPath = _random() % 3 == 0 ? folder / "arena/user/result" : result;
    if (resultPath == result) fs::resize_file(result, 0);
    InstructionArchive::Instructions job{{protocol::commandKey, command}};
    if (command == protocol::trashFileCommand || command == protocol::removeFileCommand) {
      InstructionArchive::setValueForKey(job, protocol::filePathKey, source);
    } else {
      InstructionArchive::setValueForKey(job, protocol::sourcePathKey, source);
      InstructionArchive::setValueForKey(job, protocol::destinationPathKey, destination);
    }
    InstructionArchive::setValueForKey(job, protocol::resultPathKey, resultPath);
    const auto answer = runWithBytes({toolProgram}, framed(InstructionArchive::archivedData(job)), environment);
    EXPECT_GE(answer.status, 0) << command;
    _lastStatus = answer.status;
    _lastText = answer.text;
    return command;
  }

  // The metadata of root's files and folders; their access times show when they were read.
  std::map<std::string, std::string> looks() const {
    std::map<std::string, std::string> all;
    for (const auto& path : _guarded) {
      if (!isThere(path)) continue;
      const auto s = statusOf(path);
      std::ostringstream text;
      text << s.st_mode << ' ' << s.st_uid << ' ' << s.st_gid << ' ' << s.st_nlink << ' ' << s.st_size << ' ' << s.st_ino;
      for (const auto& time : {s.st_mtim, s.st_ctim, s.st_atim}) text << ' ' << time.tv_sec << '.' << time.tv_nsec;
      all[path] = text.str();
    }
    return all;
  }
  void expectNoSecretOutside() const {
    for (const auto& [ground, user] : grounds()) {
      for (const auto& entry : fs::recursive_directory_iterator(ground)) {
        if (fs::symlink_status(entry.path()).type() != fs::file_type::regular) continue;
        EXPECT_EQ(read(entry.path()).find(secretText), std::string::npos) << entry.path();
      }
    }
  }

  std::vector<fs::path> _guarded;
  int _inner = 16;  // so many folders and files of the tree are swapped
  Counters* _counters = nullptr;
  std::vector<pid_t> _attackers;
  std::mt19937 _random{7};
  int _lastStatus = 0;
  std::string _lastText;
};

}  // namespace tests::tool
