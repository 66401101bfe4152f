#include "privileged/tool/Journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "privileged/tool/Account.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr const char* folderOfState = "/var/lib";
constexpr const char* productFolder = "kelto";
constexpr const char* journalFolder = "jobs";
constexpr mode_t readableByAll = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;

std::string nameOf(const std::string& number, const char* note) { return number + "." + note; }

// A user's own state folder; the machine's is there.
void makeStateFolder(const std::string& path) {
  if (::geteuid() == 0) return;
  for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    ::mkdir(path.substr(0, slash).c_str(), S_IRWXU);
  ::mkdir(path.c_str(), S_IRWXU);
}

[[noreturn]] void failWith(const std::string& path) { failWithSystemError("cannot keep notes in " + path); }

void requireOwn(int folder, const std::string& path) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) failWith(path);
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw Failure("cannot keep notes in " + path + ": others can write there");
}

posix::Descriptor open(int parent, const char* name) {
  return posix::Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// On the disk, so that what is noted in it is.
posix::Descriptor make(int parent, const char* name, mode_t mode) {
  if (::mkdirat(parent, name, mode) != 0 && errno != EEXIST) return {};
  if (syncDescriptor(parent) != 0) return {};
  return open(parent, name);
}

posix::Descriptor journal(bool isMade) { return folderOfNotes(journalFolder, S_IRWXU, isMade); }

}  // namespace

posix::Descriptor folderOfNotes(const char* name, mode_t mode, bool isMade) {
  auto path = stateFolder();
  if (path.empty() && !isMade) return {};
  if (path.empty()) throw Failure("cannot keep notes: the user has no home");
  if (isMade) makeStateFolder(path);
  posix::Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const char* each : {productFolder, name}) {
    if (!folder && errno == ENOENT && !isMade) return {};
    if (!folder) failWith(path);
    path += std::string("/") + each;
    auto inner = open(folder.get(), each);
    if (!inner && errno == ENOENT && isMade) inner = make(folder.get(), each, each == productFolder ? readableByAll : mode);
    if (inner) requireOwn(inner.get(), path);
    folder = std::move(inner);
  }
  if (!folder && errno == ENOENT && !isMade) return {};
  if (!folder) failWith(path);
  return folder;
}

// Nothing of the environment counts for root. A user's belongs to that user, unless the program was started with rights of
// another one. Empty when there is no home.
std::string stateFolder() {
  if (::geteuid() == 0) return folderOfState;
  const char* named = ::geteuid() == ::getuid() ? std::getenv("XDG_STATE_HOME") : nullptr;
  if (named != nullptr && *named == '/') return named;
  const auto& account = accountOf(::geteuid());
  return account && !account->home.empty() ? account->home + "/.local/state" : "";
}

Journal Journal::made() { return Journal(journal(true)); }

std::optional<Journal> Journal::existing() {
  auto folder = journal(false);
  if (!folder) return std::nullopt;
  return Journal(std::move(folder));
}

void Journal::write(const std::string& number, const char* note, const std::string& text) const {
  if (::symlinkat(text.c_str(), _folder.get(), nameOf(number, note).c_str()) != 0) failWithSystemError("cannot keep notes");
}

std::string Journal::read(const std::string& number, const char* note) const {
  return linkTargetOf(_folder.get(), nameOf(number, note));
}

bool Journal::remove(const std::string& number, const char* note) const {
  return ::unlinkat(_folder.get(), nameOf(number, note).c_str(), 0) == 0 || errno == ENOENT;
}

void Journal::sync() const { syncFolder(_folder.get()); }

std::vector<std::string> Journal::numbersWith(const char* note) const {
  std::vector<std::string> numbers;
  for (const auto& entry : entriesOf(_folder.get())) {
    const auto dot = entry.name.find('.');
    if (dot != std::string::npos && entry.name.substr(dot + 1) == note) numbers.push_back(entry.name.substr(0, dot));
  }
  return numbers;
}

void Journal::share() const {
  if (::flock(_folder.get(), LOCK_SH) != 0) failWithSystemError("cannot keep notes");
}

bool Journal::hold() const { return ::flock(_folder.get(), LOCK_EX | LOCK_NB) == 0; }

void Journal::release() const { ::flock(_folder.get(), LOCK_UN); }

}  // namespace AssistantTool
