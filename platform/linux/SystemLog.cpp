#include "platform/linux/SystemLog.h"

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>

#include "foundation/dispatch/Fork.h"
#include "foundation/runtime/Lasting.h"
#include "foundation/text/Harmless.h"

namespace platform::Linux {

namespace {

// The C library's log has a lock of its own, which a forked child would find held for ever if another thread of the parent
// was logging. So all lines go through this one, which a fork waits for.
struct Door {
  Door()
      : handlers(foundation::Fork::addHandlers({.prepare = [this] { mutex.lock(); },
                                                .parent = [this] { mutex.unlock(); },
                                                .child = [this] { mutex.unlock(); }})) {}
  ~Door() { foundation::Fork::removeHandlers(handlers); }
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  std::mutex mutex;
  const foundation::Fork::HandlersID handlers;
};

Door& door() {
  static constinit foundation::Lasting<Door> one;
  return one.get([] { return std::make_unique<Door>(); });
}

// Writes to standard error without being killed when it is a pipe whose reader has gone: the program that started this one
// may well have quit.
void writeToStandardError(const std::string& line) {
  sigset_t pipe;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  if (written < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
    const timespec noTime{};
    sigtimedwait(&pipe, nullptr, &noTime);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

void writeToSyslog(int level, std::string_view text) {
  const std::lock_guard lock(door().mutex);
  ::syslog(LOG_USER | level, "%.*s", static_cast<int>(text.size()), text.data());
}

SystemLog::SystemLog(std::string ident) : _ident(std::move(ident)) { ::openlog(_ident.c_str(), LOG_PID, LOG_USER); }

SystemLog::~SystemLog() { ::closelog(); }

void SystemLog::log(std::string_view line) {
  const std::string text = foundation::harmless(line);
  writeToSyslog(LOG_NOTICE, text);
  writeToStandardError(_ident + ": " + text + "\n");
}

}  // namespace platform::Linux
