#include "platform/linux/Launch.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "platform/linux/Accounts.h"
#include "platform/linux/LaunchMark.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

namespace {

constexpr std::string_view originalPath = "KELTO_ORIGINAL_PATH=";
constexpr std::string_view launchedMark = "KELTO_LAUNCHED_";
constexpr std::size_t digitsOfProcess = 10;

std::vector<std::string> originalEnvironment() {
  const char* original = std::getenv("KELTO_ORIGINAL_PATH");
  std::vector<std::string> environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view variable = *entry;
    const bool isReplaced = original != nullptr && variable.starts_with("PATH=");
    const bool isOwn = variable.starts_with(originalPath) || variable.starts_with(launchedMark);
    if (!isReplaced && !isOwn) environment.emplace_back(variable);
  }
  if (original != nullptr) environment.push_back(std::string("PATH=") + original);
  return environment;
}

// The form that exec takes; valid as long as `words`.
std::vector<char*> pointersTo(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (auto& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Everything that the new process needs, made beforehand: nothing may be allocated between fork and exec.
struct Start {
  const char* program;
  char* const* arguments;
  char* const* environment;
  char* markedProcess;  // where the new process writes its number: this many digits, the rest of them zero bytes
  const char* folder;
  int errors;  // closed by a successful exec
};

void resetSignals() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) ::sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool arrangeDescriptors() {
  const int nothing = ::open("/dev/null", O_RDWR);
  if (nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0) return false;
  for (const int output : {STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(output, F_GETFD) < 0 && ::dup2(nothing, output) < 0) return false;
  return ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0;
}

[[noreturn]] void fail(const Start& start) {
  const int status = errno;
  const ssize_t written = ::write(start.errors, &status, sizeof status);
  ::_exit(written == sizeof status ? 127 : 126);
}

// By hand: nothing that formats text may be called between fork and exec.
void writeNumber(char* place, pid_t number) {
  char digits[digitsOfProcess];
  std::size_t count = 0;
  for (; number > 0 && count < digitsOfProcess; number /= 10) digits[count++] = static_cast<char>('0' + number % 10);
  while (count > 0) *place++ = digits[--count];
  *place = 0;
}

[[noreturn]] void become(const Start& start) {
  writeNumber(start.markedProcess, ::getpid());
  resetSignals();
  if (!arrangeDescriptors()) fail(start);
  if (::chdir(start.folder) != 0 && ::chdir("/") != 0) fail(start);
  ::execve(start.program, start.arguments, start.environment);
  fail(start);
}

// The child in the middle ends at once, so that the program belongs to the system and leaves no zombie here.
[[noreturn]] void forkAgain(const Start& start) {
  ::setsid();
  const pid_t program = ::fork();
  if (program == 0) become(start);
  if (program < 0) fail(start);
  ::_exit(0);
}

// A signal between fork and exec would run this program's handler in the new process.
pid_t forkWithSignalsBlocked(const Start& start) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t middle = ::fork();
  if (middle == 0) forkAgain(start);
  const int status = errno;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = status;
  return middle;
}

// The error number that the new process wrote, or 0 if exec succeeded and so closed its end of the pipe.
int errorFrom(int descriptor) {
  int status = 0;
  ssize_t length = 0;
  do length = ::read(descriptor, &status, sizeof status);
  while (length < 0 && errno == EINTR);
  if (length == 0) return 0;
  return length == sizeof status ? status : EIO;
}

}  // namespace

int launch(const std::string& program, const std::vector<std::string>& arguments, const std::string& identifier) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment = originalEnvironment();
  environment.push_back(std::string(launchedIdentifierVariable) + "=" + identifier);
  environment.push_back(std::string(launchedProcessVariable) + "=" + std::string(digitsOfProcess, '0'));
  const auto argumentPointers = pointersTo(words);
  const auto environmentPointers = pointersTo(environment);
  const std::string home = homeFolder();

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  const posix::Descriptor reading(ends[0]);
  posix::Descriptor writing(ends[1]);
  // Clear of the standard descriptors, which the new process arranges anew.
  posix::Descriptor errors(::fcntl(writing.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!errors) return errno;
  writing.reset();

  const Start start{program.c_str(),
                    argumentPointers.data(),
                    environmentPointers.data(),
                    environment.back().data() + environment.back().size() - digitsOfProcess,
                    home.empty() ? "/" : home.c_str(),
                    errors.get()};
  const pid_t middle = forkWithSignalsBlocked(start);
  if (middle < 0) return errno;
  errors.reset();
  const int status = errorFrom(reading.get());
  int exit = 0;
  while (::waitpid(middle, &exit, 0) < 0 && errno == EINTR) continue;
  return status == 0 && exit != 0 ? EIO : status;
}

}  // namespace platform::Linux
