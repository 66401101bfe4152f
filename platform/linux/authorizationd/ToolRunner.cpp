#include "platform/linux/authorizationd/ToolRunner.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
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
#include <vector>

#include "protocol/Broker.h"
#include "protocol/ToolProtocol.h"

namespace platform::Linux::authorizationd {

namespace {

// Why the file must not be run for `caller`, or nullptr. The kernel's own knowledge of the file is enough: its file system,
// which may be a program of the caller's, is not asked and so cannot keep the broker waiting.
const char* objection(int tool, const Caller& caller) {
  struct statx file {};
  constexpr int flags = AT_EMPTY_PATH | AT_STATX_DONT_SYNC;
  constexpr unsigned needed = STATX_TYPE | STATX_MODE | STATX_UID;
  if (::statx(tool, "", flags, needed, &file) != 0 || (file.stx_mask & needed) != needed) {
    return "the tool cannot be examined";
  }
  if (!S_ISREG(file.stx_mode)) return "the tool is not a regular file";
  if ((file.stx_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) return "the tool is not executable";
  if ((file.stx_mode & (S_ISUID | S_ISGID)) != 0) return "the tool has the set-user-id or the set-group-id bit";
  if (file.stx_uid != 0 && file.stx_uid != caller.uid) return "the tool belongs to another user";
  if ((file.stx_mode & (S_IWGRP | S_IWOTH)) != 0) return "the tool is writable by others";
  return nullptr;
}

struct ChildStart {
  int tool;
  int stream;
  int nothing;  // open on /dev/null
  int failure;  // where the child writes errno when it cannot run the tool
  std::vector<std::string> environment;
};

std::vector<std::string> environmentFor(uid_t user, const ToolRunner::Job& job) {
  std::vector<std::string> settings{"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8",
                                    std::string(protocol::invokingUserVariable) + "=" + std::to_string(user),
                                    std::string(protocol::jobVariable) + "=" + job.number};
  if (job.hasAnyProgramRight) settings.push_back(std::string(protocol::anyProgramVariable) + "=1");
  // The folders in which the user keeps data, and so has a Trash, and notes. The broker knows them for its own user only.
  for (const char* variable : {"XDG_DATA_HOME", "XDG_STATE_HOME"}) {
    const char* folder = ::getuid() == user ? std::getenv(variable) : nullptr;
    if (folder != nullptr) settings.push_back(std::string(variable) + "=" + folder);
  }
  return settings;
}

// Keeps `start.tool` and `start.failure` open under the numbers after the standard ones, and nothing else: a program that
// is slow to start must not hold on to the broker's connections. Both end with the exec.
bool keepOnly(ChildStart& start) {
  constexpr int toolNumber = STDERR_FILENO + 1;
  constexpr int failureNumber = toolNumber + 1;
  const int tool = ::fcntl(start.tool, F_DUPFD_CLOEXEC, failureNumber + 1);
  const int failure = ::fcntl(start.failure, F_DUPFD_CLOEXEC, failureNumber + 1);
  if (tool < 0 || failure < 0 || ::dup3(failure, failureNumber, O_CLOEXEC) < 0) return false;
  start.failure = failureNumber;
  if (::dup3(tool, toolNumber, O_CLOEXEC) < 0) return false;
  start.tool = toolNumber;
  return ::close_range(failureNumber + 1, ~0U, 0) == 0;
}

// In the child, between fork and exec: only calls that are safe there. Returns when something failed.
void becomeTool(ChildStart& start) {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::umask(022);
  if (::setsid() < 0 || ::chdir("/") != 0) return;
  if (::dup2(start.stream, STDIN_FILENO) < 0 || ::dup2(start.stream, STDOUT_FILENO) < 0) return;
  if (::dup2(start.nothing, STDERR_FILENO) < 0) return;
  if (!keepOnly(start) || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;
  std::array<char, 16> name{"authorized-tool"};
  std::array<char*, 2> arguments{name.data(), nullptr};
  std::array<char*, 8> environment{};
  for (std::size_t i = 0; i + 1 < environment.size() && i < start.environment.size(); ++i)
    environment[i] = start.environment[i].data();
  ::execveat(start.tool, "", arguments.data(), environment.data(), AT_EMPTY_PATH);
}

pid_t startChild(ChildStart&& start) {
  const pid_t process = ::fork();
  if (process != 0) return process;
  becomeTool(start);
  const int error = errno;
  const ssize_t written = ::write(start.failure, &error, sizeof error);
  ::_exit(written == sizeof error ? 127 : 126);
}

// 0 once the child runs the tool, else the error number that kept it from doing so.
int errorOfStart(int failure) {
  int error = 0;
  ssize_t got = 0;
  do {
    got = ::read(failure, &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  if (got == 0) return 0;
  return got == sizeof error ? error : EIO;
}

}  // namespace

ToolRunner::ToolRunner(sd_event* loop, Ended ended) : _loop(loop), _ended(std::move(ended)) {}

ToolRunner::~ToolRunner() {
  for (const auto& [process, child] : _children) {
    if (child.start) sd_event_source_disable_unref(child.start->source);
    sd_event_source_disable_unref(child.source);
  }
}

void ToolRunner::run(const Caller& caller, const Job& job, int tool, Started started) {
  const auto fail = [&started](const std::string& why) {
    started(errAuthorizationToolExecuteFailure, posix::Descriptor(), why);
  };
  const auto running = std::count_if(_children.begin(), _children.end(),
                                     [&](const auto& entry) { return entry.second.caller.uid == caller.uid; });
  if (static_cast<std::size_t>(running) >= protocol::maximumToolsOfUser)
    return fail("too many tools of this user are running");
  if (const char* why = objection(tool, caller)) return fail(why);

  std::array<int, 2> ends{};
  std::array<int, 2> failure{};
  const posix::Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nothing || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return fail(std::strerror(errno));
  posix::Descriptor ours(ends[0]);
  const posix::Descriptor theirs(ends[1]);
  if (::pipe2(failure.data(), O_CLOEXEC) != 0) return fail(std::strerror(errno));
  posix::Descriptor failureRead(failure[0]);
  const posix::Descriptor failureWrite(failure[1]);

  const pid_t process = startChild({.tool = tool,
                                    .stream = theirs.get(),
                                    .nothing = nothing.get(),
                                    .failure = failureWrite.get(),
                                    .environment = environmentFor(caller.uid, job)});
  if (process < 0) return fail(std::strerror(errno));
  auto start = std::make_unique<Start>();
  start->failure = std::move(failureRead);
  start->stream = std::move(ours);
  start->started = started;
  if (watch(process, caller, job, std::move(start))) return;
  ::kill(process, SIGKILL);
  ::waitpid(process, nullptr, 0);
  fail("the tool cannot be watched");
}

bool ToolRunner::watch(pid_t process, const Caller& caller, const Job& job, std::unique_ptr<Start> start) {
  sd_event_source* source = nullptr;
  if (sd_event_add_io(_loop, &start->source, start->failure.get(), EPOLLIN, startDecided, this) < 0) return false;
  if (sd_event_add_child(_loop, &source, process, WEXITED, childEnded, this) < 0) {
    sd_event_source_disable_unref(start->source);
    return false;
  }
  _children.emplace(process, Child{caller, job, source, std::move(start)});
  return true;
}

int ToolRunner::startDecided(sd_event_source* source, int /*descriptor*/, std::uint32_t /*events*/, void* self) {
  auto* runner = static_cast<ToolRunner*>(self);
  for (auto& [process, child] : runner->_children) {
    if (!child.start || child.start->source != source) continue;
    runner->finishStart(child);
    break;
  }
  return 0;
}

void ToolRunner::finishStart(Child& child) {
  const auto start = std::move(child.start);
  sd_event_source_disable_unref(start->source);
  const int error = errorOfStart(start->failure.get());
  if (error == 0) return start->started(errAuthorizationSuccess, start->stream, {});
  start->started(errAuthorizationToolExecuteFailure, posix::Descriptor(),
                 std::string("the tool cannot be run: ") + std::strerror(error));
}

int ToolRunner::childEnded(sd_event_source* source, const siginfo_t* info, void* self) {
  auto* runner = static_cast<ToolRunner*>(self);
  const auto child = runner->_children.find(info->si_pid);
  // A program may end before it was noticed that it started.
  if (child->second.start) runner->finishStart(child->second);
  const Child ended = std::move(child->second);
  runner->_children.erase(child);
  sd_event_source_disable_unref(source);
  runner->_ended(ended.caller, ended.job, *info);
  return 0;
}

}  // namespace platform::Linux::authorizationd
