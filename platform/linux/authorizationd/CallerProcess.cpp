#include "platform/linux/authorizationd/CallerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string_view>

namespace platform::Linux::authorizationd {

namespace {

// This thread's identity towards file systems, for as long as this object lives. Of effect for root only.
class FileIdentity {
 public:
  FileIdentity(uid_t user, gid_t group)
      : _group(static_cast<gid_t>(::setfsgid(group))), _user(static_cast<uid_t>(::setfsuid(user))) {}
  ~FileIdentity() {
    ::setfsuid(_user);
    ::setfsgid(_group);
  }
  FileIdentity(const FileIdentity&) = delete;
  FileIdentity& operator=(const FileIdentity&) = delete;

 private:
  gid_t _group;
  uid_t _user;
};

// The number in the line "Pid:" of what the kernel says about a descriptor; 0 when there is no such line or no process.
pid_t processNamedBy(int pidfd) {
  const posix::Descriptor file(::open(("/proc/self/fdinfo/" + std::to_string(pidfd)).c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 1024> buffer{};
  const ssize_t got = file ? ::read(file.get(), buffer.data(), buffer.size()) : 0;
  if (got <= 0) return 0;
  const std::string_view text(buffer.data(), static_cast<std::size_t>(got));
  constexpr std::string_view key = "\nPid:\t";
  const auto begin = text.find(key);
  pid_t number = 0;
  if (begin != std::string_view::npos) std::from_chars(text.data() + begin + key.size(), text.data() + text.size(), number);
  return number > 0 ? number : 0;
}

}  // namespace

std::string executableOf(pid_t process, uid_t user) {
  if (process <= 0) return "";
  const std::string folder = "/proc/" + std::to_string(process);
  const posix::Descriptor entry(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat owner {};
  if (!entry || ::fstat(entry.get(), &owner) != 0 || owner.st_uid != user) return "";
  const FileIdentity identity(owner.st_uid, owner.st_gid);
  std::array<char, 4096> path{};
  const ssize_t length = ::readlinkat(entry.get(), "exe", path.data(), path.size());
  return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : "";
}

std::shared_ptr<const NamedProcess> NamedProcess::of(int pidfd) {
  posix::Descriptor own(::fcntl(pidfd, F_DUPFD_CLOEXEC, 3));
  const pid_t number = own ? processNamedBy(own.get()) : 0;
  if (number == 0) return nullptr;
  const std::shared_ptr<const NamedProcess> process(new NamedProcess(std::move(own), number));
  return process->isAlive() ? process : nullptr;
}

bool NamedProcess::isAlive() const {
  pollfd state{.fd = _pidfd.get(), .events = POLLIN, .revents = 0};
  return ::poll(&state, 1, 0) == 0;
}

}  // namespace platform::Linux::authorizationd
