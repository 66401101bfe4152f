#include "privileged/tool/Confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "privileged/tool/Account.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Journal.h"
#include "privileged/tool/KeptBundles.h"
#include "privileged/tool/MountTable.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

// Before this version every rename from one folder to another is forbidden, and a job is little else.
constexpr long firstUsefulVersion = 2;
constexpr long versionWithTruncation = 3;
constexpr std::uint64_t truncation = std::uint64_t{1} << 14;  // not in every header
constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
// Devices are made by no job.
constexpr std::uint64_t working = reading | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                  LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                  LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                  LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_REFER;
constexpr std::uint64_t devices = LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_BLOCK;

// Mounts and the job's own descriptors, accounts, keys and policy, the modules that find accounts.
constexpr std::array readFolders{"/proc", "/etc", "/usr", "/lib", "/lib64"};

posix::Descriptor opened(const std::string& path) {
  return posix::Descriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

bool allow(int rules, int folder, std::uint64_t access) {
  const landlock_path_beneath_attr rule{.allowed_access = access, .parent_fd = folder};
  return ::syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

// The narrowest of these folders that is there.
void addFirst(std::vector<posix::Descriptor>& folders, std::initializer_list<std::string> paths) {
  for (const auto& path : paths) {
    auto folder = opened(path);
    if (!folder) continue;
    folders.push_back(std::move(folder));
    return;
  }
}

std::optional<Location> placeOf(const std::string& path, const PathWalk& walk) {
  try {
    return walk.locate(path);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

// The folder, or the one above it that it is to be made in; never the root folder. The user's own links lead nowhere.
void addNearest(std::vector<posix::Descriptor>& folders, std::string path, const PathWalk& walk) {
  for (; !path.empty(); path.resize(path.rfind('/'))) {
    const auto place = placeOf(path, walk);
    if (!place) continue;
    folders.emplace_back(::openat(place->folder.get(), place->name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folders.back()) return;
    folders.pop_back();
  }
}

void addTrash(std::vector<posix::Descriptor>& folders, const Location& item, const PathWalk& walk) {
  const uid_t user = walk.user();
  const auto account = accountOf(user);
  if (account && !account->dataFolder.empty()) addNearest(folders, account->dataFolder + "/Trash", walk);
  const auto top = MountTable().topFolderOf(item.path);
  if (top == "/") return;
  if (auto shared = opened(top + "/.Trash")) folders.push_back(std::move(shared));
  addFirst(folders, {top + "/.Trash-" + std::to_string(user), top});
}

// Made now, because it cannot be any more later.
void addJournal(std::vector<posix::Descriptor>& folders) {
  try {
    folders.emplace_back(::fcntl(Journal::made().descriptor(), F_DUPFD_CLOEXEC, 0));
  } catch (const Failure&) {
    // The job says so itself, if it has anything to note.
  }
}

// A replacement may keep a bundle, or return to one.
void addKeptBundles(std::vector<posix::Descriptor>& folders, const Request& request) {
  try {
    const auto kept = request.rules.policy.keptVersions > 0 ? KeptBundles::made() : KeptBundles::existing();
    if (kept) folders.emplace_back(::fcntl(kept->descriptor(), F_DUPFD_CLOEXEC, 0));
  } catch (const Failure&) {
    // The job says so itself, if it has anything to keep.
  }
}

}  // namespace

std::vector<posix::Descriptor> foldersOf(const Command& command, const Request& request) {
  std::vector<posix::Descriptor> folders;
  for (const char* key : command.paths) {
    if (key == nullptr) continue;
    auto location = request.locate(key);
    if (command.name == protocol::trashFileCommand) addTrash(folders, location, request.walk);
    folders.push_back(std::move(location.folder));
  }
  addJournal(folders);
  if (command.name == protocol::replaceItemCommand) addKeptBundles(folders, request);
  return folders;
}

std::string confineTo(std::span<const posix::Descriptor> folders, Programs programs) {
  const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 0) return std::strerror(errno);
  if (version < firstUsefulVersion) return "this kernel's Landlock forbids every rename between folders";
  const std::uint64_t allowed = version < versionWithTruncation ? working : working | truncation;
  const landlock_ruleset_attr handled{.handled_access_fs = allowed | devices | LANDLOCK_ACCESS_FS_EXECUTE};
  const posix::Descriptor rules(static_cast<int>(::syscall(SYS_landlock_create_ruleset, &handled, sizeof handled, 0)));
  if (!rules) return std::strerror(errno);
  for (const auto& folder : folders) {
    if (!allow(rules.get(), folder.get(), allowed)) return std::strerror(errno);
  }
  std::vector<std::string> read(readFolders.begin(), readFolders.end());
  read.push_back(stateFolder());
  for (const auto& path : read) {
    const auto folder = opened(path);
    const auto access = programs == Programs::areRun ? reading | LANDLOCK_ACCESS_FS_EXECUTE : reading;
    if (folder && !allow(rules.get(), folder.get(), access)) return std::strerror(errno);
  }
  return ::syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0 ? "" : std::strerror(errno);
}

}  // namespace AssistantTool
