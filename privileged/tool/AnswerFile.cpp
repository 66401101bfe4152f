#include "privileged/tool/AnswerFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

void judge(const struct stat& status, uid_t user) {
  if (S_ISLNK(status.st_mode)) throw Failure("the result file is a link");
  if (!S_ISREG(status.st_mode)) throw Failure("the result file is not a regular file");
  if (status.st_nlink != 1) throw Failure("the result file has another name, or none");
  if (status.st_uid != user) throw Failure("the result file belongs to someone else");
}

// The file is open to everybody, because root and the user write it in turn; so its folder must be closed to all others.
void judgeFolder(int folder, uid_t user) {
  const auto status = statusOf(folder);
  if (status.st_uid != 0 && status.st_uid != user) throw Failure("the folder of the result file belongs to someone else");
  constexpr mode_t changedOrEnteredByOthers = S_IWGRP | S_IXGRP | S_IWOTH | S_IXOTH;
  if ((status.st_mode & changedOrEnteredByOthers) != 0) throw Failure("others can enter the folder of the result file");
}

}  // namespace

AnswerFile::AnswerFile(const std::string& path, const PathWalk& walk) : _user(walk.user()) {
  const auto location = walk.locate(path);
  // Looked at before it is opened: opening a device or a pipe may already do something.
  const posix::Descriptor found(::openat(location.folder.get(), location.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!found) failWithSystemError("cannot open the result file");
  judge(statusOf(found.get()), _user);
  judgeFolder(location.folder.get(), _user);
  _file = posix::Descriptor(::open(pathOfDescriptor(found.get()).c_str(), O_WRONLY | O_CLOEXEC));
  if (!_file) failWithSystemError("cannot write the result file");
  if (statusOf(_file.get()).st_size != 0) throw Failure("the result file is not empty");
}

void AnswerFile::write(std::string_view text) const {
  judge(statusOf(_file.get()), _user);
  off_t at = 0;
  while (!text.empty()) {
    const auto written = ::pwrite(_file.get(), text.data(), text.size(), at);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) failWithSystemError("cannot write the result file");
    at += written;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// A failure is left alone: at worst the caller gives the job up after a minute.
void AnswerFile::give(Sign sign) const {
  constexpr timespec kept{.tv_sec = 0, .tv_nsec = UTIME_OMIT};
  const timespec accessed{.tv_sec = protocol::longCallTime, .tv_nsec = sign == Sign::life ? UTIME_NOW : 0};
  const std::array<timespec, 2> times{accessed, kept};
  ::futimens(_file.get(), times.data());
}

std::pair<dev_t, ino_t> AnswerFile::identity() const {
  const auto status = statusOf(_file.get());
  return {status.st_dev, status.st_ino};
}

}  // namespace AssistantTool
