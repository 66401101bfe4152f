#pragma once
// A user who works against a job that gives root's item away.
#include <fcntl.h>

#include <memory>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/TreeState.h"

namespace tests::tool {

// While it lives, this process has the rights of that user and group only.
class As {
 public:
  As(uid_t user, gid_t group) { EXPECT_TRUE(::setegid(group) == 0 && ::seteuid(user) == 0); }
  ~As() { EXPECT_TRUE(::seteuid(0) == 0 && ::setegid(0) == 0); }
  As(const As&) = delete;
  As& operator=(const As&) = delete;
};

class Opened {
 public:
  Opened(const fs::path& path, int flags) : _number(::open(path.c_str(), flags | O_CLOEXEC)) {}
  ~Opened() {
    if (_number >= 0) ::close(_number);
  }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  [[nodiscard]] int get() const { return _number; }
  [[nodiscard]] fs::path path() const { return "/proc/self/fd/" + std::to_string(_number); }

 private:
  int _number;
};

struct Attack {
  std::string name;
  std::string command;
  // The cause of the job's failure: the user moves an item off its path during one call, or the disk fails.
  bool failsByUser = false;
  // The new item belongs to the user, the old one to root.
  bool isUsersOwn = false;
  bool hasSetIDBits = true;
  // In the Trash the user lays an item of their own in the place of the one that has come.
  bool laysOwnItem = false;
};

// A job that gives root's item to a user, who meanwhile opens what they can and writes to it; then the job fails. At many
// system calls of the job in turn.
class HandBack : public NamespaceTest, public ::testing::WithParamInterface<Attack> {
 protected:
  static constexpr const char* payload = "written by the user";

  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!isTracingPossible()) GTEST_SKIP() << "faults are injected on x86-64 only";
    becomeAnotherUsersTool();
  }

  // At every `step`th system call of the job.
  void attackAtCalls(std::size_t step) {
    std::size_t runs = 0;
    for (std::size_t at = 1; attackAt(at); at += step) ++runs;
    std::printf("%zu runs, %d failed, in %d the user could write to what had been root's\n", runs, _failed, _gained);
    EXPECT_GT(_failed, 0);
    // A trashed item becomes the user's; a copy replaces the user's item.
    EXPECT_EQ(_gained > 0, GetParam().command == protocol::trashFileCommand);
  }

 private:
  // False when the job makes fewer calls than that.
  bool attackAt(std::size_t at) {
    prepare();
    const auto item = statusOf(_item).st_ino;
    std::vector<std::unique_ptr<Opened>> looked;  // opened while anybody may, for no more than that the files are there
    for (const auto& name : programNames) looked.push_back(std::make_unique<Opened>(_item / name, O_PATH));
    Held held;
    const auto asUser = [&](const std::function<void()>& act) {
      const As self(invokingUser, invokingGroup);
      hold(looked, held);
      act();
    };
    asUser([] {});
    const auto own = held.size();
    const Meddler user{.meddle =
                           [&] {
                             asUser([&] {
                               for (const auto& [name, file] : held) writePayload(*file);
                               if (GetParam().failsByUser) ::rename(taken().c_str(), away().c_str());
                               if (GetParam().laysOwnItem) layOwnItem();
                             });
                           },
                       .undo =
                           [&] {
                             asUser([&] {
                               if (GetParam().failsByUser) ::rename(away().c_str(), taken().c_str());
                             });
                           },
                       .thenDiskFails = !GetParam().failsByUser};
    const auto traced = runWithFault({toolProgram}, bytes(), environment, {.at = at}, &user);
    if (traced.calls < at) return false;
    if (held.size() > own) ++_gained;
    if (traced.answer.status != 0) ++_failed;
    if (traced.answer.status != 0 && GetParam().command == protocol::replaceItemCommand && own == 1) expectUntouched();
    expectNothingOfRootsWritten(at, looked);
    EXPECT_TRUE(!isThere(_item) || statusOf(_item).st_ino == item) << "another item came to the old place, call " << at;
    asUser([&] {
      for (const auto& [name, file] : held) writePayload(*file);
    });
    expectNothingOfRootsWritten(at, looked);
    return !HasFailure();
  }

  using Held = std::map<const Opened*, std::unique_ptr<Opened>>;
  int _gained = 0;  // runs in which the user could write to more than what was theirs before
  int _failed = 0;

  inline static const std::vector<std::string> programNames{"Contents/Linux/helper", "Contents/Linux/of-a-group",
                                                            "Contents/file"};

  void prepare() {
    for (const char* name : {"home", "Applications"}) fs::remove_all(folder / name);
    // Else each job would read the notes of all that failed before.
    tests::PrivateState::clear();
    fs::create_directory(home());
    giveToUser(home());
    for (const auto& name : programNames) write(_item / name, "root's own program");
    ASSERT_EQ(::chown((_item / programNames[1]).c_str(), invokingUser, otherGroup), 0);
    if (GetParam().isUsersOwn) giveTree(_item, {.user = invokingUser, .group = otherGroup});
    if (GetParam().hasSetIDBits) {
      ASSERT_EQ(::chmod((_item / programNames[0]).c_str(), 04755), 0);
      ASSERT_EQ(::chmod((_item / programNames[1]).c_str(), 02755), 0);
    }
    if (GetParam().command == protocol::replaceItemCommand) {
      write(destination() / "file", "old");
      if (!GetParam().isUsersOwn) giveTree(home(), {.user = invokingUser, .group = invokingGroup});
    }
    fs::resize_file(result, 0);
  }
  std::string bytes() const {
    InstructionArchive::Instructions job{{protocol::commandKey, GetParam().command}, {protocol::resultPathKey, result}};
    if (GetParam().command == protocol::trashFileCommand) {
      InstructionArchive::setValueForKey(job, protocol::filePathKey, _item);
    } else {
      InstructionArchive::setValueForKey(job, protocol::sourcePathKey, _item);
      InstructionArchive::setValueForKey(job, protocol::destinationPathKey, destination());
    }
    return framed(InstructionArchive::archivedData(job));
  }
  fs::path destination() const { return home() / "Old.app"; }
  // In a folder of the user's.
  fs::path taken() const {
    return GetParam().command == protocol::trashFileCommand ? home() / ".local/share/Trash/files/App.app" : destination();
  }
  fs::path away() const { return taken().string() + "~"; }
  void layOwnItem() const {
    if (::rename(taken().c_str(), away().c_str()) == 0) write(taken() / "Contents/file", payload);
  }
  void expectUntouched() const {
    EXPECT_EQ(statusOf(_item / programNames[0]).st_uid, 0U);
    EXPECT_EQ(statusOf(_item / programNames[0]).st_mode & ALLPERMS, GetParam().hasSetIDBits ? 04755U : 0644U);
  }
  // As the user.
  static void hold(const std::vector<std::unique_ptr<Opened>>& looked, Held& held) {
    for (const auto& file : looked) {
      auto opened = std::make_unique<Opened>(file->path(), O_RDWR);
      if (opened->get() >= 0) held.try_emplace(file.get(), std::move(opened));
    }
  }
  static void writePayload(const Opened& file) {
    EXPECT_GT(::pwrite(file.get(), payload, std::strlen(payload), 0), 0) << std::strerror(errno);
  }
  static void expectNothingOfRootsWritten(std::size_t at, const std::vector<std::unique_ptr<Opened>>& looked) {
    for (std::size_t i = 0; i < looked.size(); ++i) {
      struct stat status {};
      ASSERT_EQ(::fstat(looked[i]->get(), &status), 0);
      if (!read(looked[i]->path()).starts_with(payload)) continue;
      EXPECT_EQ(status.st_uid, invokingUser) << programNames[i] << " was given back, call " << at;
      EXPECT_EQ(status.st_mode & (S_ISUID | S_ISGID), 0U) << programNames[i] << " has its bits again, call " << at;
    }
  }

  static constexpr gid_t otherGroup = 777;
  fs::path _item = folder / "Applications/App.app";
};

inline const std::vector<Attack> allAttacks{
    {.name = "TrashWhoseUserTakesTheItemAway", .command = protocol::trashFileCommand, .failsByUser = true},
    {.name = "TrashOnAFailingDisk", .command = protocol::trashFileCommand},
    {.name = "TrashWhoseUserLaysAnotherItem", .command = protocol::trashFileCommand, .laysOwnItem = true},
    {.name = "ReplaceWhoseUserTakesTheOldItemAway", .command = protocol::replaceItemCommand, .failsByUser = true},
    {.name = "ReplaceOnAFailingDisk", .command = protocol::replaceItemCommand},
    {.name = "ReplaceWithoutSetIDBits", .command = protocol::replaceItemCommand, .hasSetIDBits = false},
    {.name = "ReplaceOfRootsItem", .command = protocol::replaceItemCommand, .isUsersOwn = true}};
inline std::string nameOfAttack(const ::testing::TestParamInfo<Attack>& info) { return info.param.name; }

}  // namespace tests::tool
