#include "platform/linux/authorizationd/ToolRunner.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace platform::Linux::authorizationd {

namespace {

// Why the file must not be run for `caller`, or nullptr.
const char* objection(int tool, const Caller& caller) {
  struct stat file {};
  if (::fstat(tool, &file) != 0) return "the tool cannot be examined";
  if (!S_ISREG(file.st_mode)) return "the tool is not a regular file";
  if ((file.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) return "the tool is not executable";
  if ((file.st_mode & (S_ISUID | S_ISGID)) != 0) return "the tool has the set-user-id or the set-group-id bit";
  if (file.st_uid != 0 && file.st_uid != caller.uid) return "the tool belongs to another user";
  if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "the tool is writable by others";
  return nullptr;
}

struct Start {
  int tool;
  int stream;
  int nothing;  // open on /dev/null
  int failure;  // where the child writes errno when it cannot run the tool
  const char* invokingUser;
  char* dataFolder;  // a setting of the environment, or nullptr
};

// Where the user keeps data and so has a Trash, as a setting of the environment. The broker knows for its own user only.
std::string dataFolderSetting(uid_t user) {
  const char* folder = ::getuid() == user ? std::getenv("XDG_DATA_HOME") : nullptr;
  return folder == nullptr ? "" : std::string("XDG_DATA_HOME=") + folder;
}

// In the child, between fork and exec: only calls that are safe there. Returns when something failed.
void becomeTool(const Start& start) {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::umask(022);
  if (::setsid() < 0 || ::chdir("/") != 0) return;
  if (::dup2(start.stream, STDIN_FILENO) < 0 || ::dup2(start.stream, STDOUT_FILENO) < 0) return;
  if (::dup2(start.nothing, STDERR_FILENO) < 0) return;
  if (::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) return;
  std::array<char, 16> name{"authorized-tool"};
  std::array<char, 40> path{"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  std::array<char, 16> language{"LANG=C.UTF-8"};
  std::array<char, 40> user{"KELTO_INVOKING_UID="};
  std::strncat(user.data(), start.invokingUser, user.size() - std::strlen(user.data()) - 1);
  std::array<char*, 2> arguments{name.data(), nullptr};
  std::array<char*, 5> environment{path.data(), language.data(), user.data(), start.dataFolder, nullptr};
  ::execveat(start.tool, "", arguments.data(), environment.data(), AT_EMPTY_PATH);
}

pid_t startChild(const Start& start) {
  const pid_t process = ::fork();
  if (process != 0) return process;
  becomeTool(start);
  const int error = errno;
  const ssize_t written = ::write(start.failure, &error, sizeof error);
  ::_exit(written == sizeof error ? 127 : 126);
}

// 0 once the child runs the tool, else the error number that kept it from doing so.
int waitForStart(int failure) {
  int error = 0;
  ssize_t got = 0;
  do {
    got = ::read(failure, &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  if (got == 0) return 0;
  return got == sizeof error ? error : EIO;
}

}  // namespace

ToolRunner::ToolRunner(sd_event* loop, std::function<void()> ended) : _loop(loop), _ended(std::move(ended)) {}

ToolRunner::~ToolRunner() {
  for (const auto& [process, child] : _children) sd_event_source_disable_unref(child.source);
}

AuthorizationStatus ToolRunner::run(const Caller& caller, int tool, Descriptor& stream, std::string& reason) {
  const auto fail = [&reason](std::string why) {
    reason = std::move(why);
    return errAuthorizationToolExecuteFailure;
  };
  const auto running =
      std::count_if(_children.begin(), _children.end(), [&](const auto& entry) { return entry.second.uid == caller.uid; });
  if (static_cast<std::size_t>(running) >= MaximumToolsOfUser) return fail("too many tools of this user are running");
  if (const char* why = objection(tool, caller)) return fail(why);

  std::array<int, 2> ends{};
  std::array<int, 2> failure{};
  const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nothing || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return fail(std::strerror(errno));
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  if (::pipe2(failure.data(), O_CLOEXEC) != 0) return fail(std::strerror(errno));
  const Descriptor failureRead(failure[0]);
  Descriptor failureWrite(failure[1]);

  const std::string user = std::to_string(caller.uid);
  std::string dataFolder = dataFolderSetting(caller.uid);
  const pid_t process = startChild({.tool = tool,
                                    .stream = theirs.get(),
                                    .nothing = nothing.get(),
                                    .failure = failureWrite.get(),
                                    .invokingUser = user.c_str(),
                                    .dataFolder = dataFolder.empty() ? nullptr : dataFolder.data()});
  if (process < 0) return fail(std::strerror(errno));
  failureWrite.reset();
  const int error = waitForStart(failureRead.get());
  if (!watch(process, caller.uid)) {
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
    return fail("the tool cannot be watched");
  }
  if (error != 0) return fail(std::string("the tool cannot be run: ") + std::strerror(error));
  stream = std::move(ours);
  return errAuthorizationSuccess;
}

bool ToolRunner::watch(pid_t process, uid_t uid) {
  sd_event_source* source = nullptr;
  if (sd_event_add_child(_loop, &source, process, WEXITED, childEnded, this) < 0) return false;
  _children.emplace(process, Child{uid, source});
  return true;
}

int ToolRunner::childEnded(sd_event_source* source, const siginfo_t* info, void* self) {
  auto* runner = static_cast<ToolRunner*>(self);
  runner->_children.erase(info->si_pid);
  sd_event_source_disable_unref(source);
  runner->_ended();
  return 0;
}

}  // namespace platform::Linux::authorizationd
