#include "platform/linux/LoggingHost.h"

#include <dlfcn.h>
#include <errno.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "foundation/dispatch/Fork.h"
#include "foundation/dispatch/Threads.h"
#include "platform/linux/OwnThreads.h"
#include "platform/linux/SystemLog.h"

namespace platform::Linux {

std::string ProcessInfo::processName() const { return program_invocation_short_name; }

std::int32_t ProcessInfo::processIdentifier() const { return ::getpid(); }

std::uint32_t ProcessInfo::currentThreadIdentifier() const { return static_cast<std::uint32_t>(::syscall(SYS_gettid)); }

std::uint32_t ProcessInfo::processorCount() const {
  return static_cast<std::uint32_t>(std::max(0L, ::sysconf(_SC_NPROCESSORS_ONLN)));
}

bool ProcessInfo::fenceOtherThreads() {
  const auto barrier = [](int command) { return ::syscall(SYS_membarrier, command, 0, 0) == 0; };
  return barrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) ||
         (barrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) && barrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED));
}

bool Terminal::isTerminal() const { return ::isatty(_descriptor) == 1; }

void Terminal::write(std::span<const std::string_view> pieces) {
  std::array<iovec, 16> list{};
  const std::size_t count = std::min(pieces.size(), list.size());
  for (std::size_t i = 0; i < count; ++i) list[i] = {const_cast<char*>(pieces[i].data()), pieces[i].size()};
  while (::writev(_descriptor, list.data(), static_cast<int>(count)) < 0 && errno == EINTR) {
  }
}

void LeveledSystemLog::open(std::string_view /*facility*/) {
  // The C library connects at the first line, and under the program's name unless somebody gave another.
}

void LeveledSystemLog::log(int level, std::string_view text) { writeToSyslog(level, text); }

namespace {

// Threads run this code until the process ends, so the library that holds it must not be unloaded.
void stayLoaded() {
  Dl_info own{};
  if (::dladdr(reinterpret_cast<const void*>(&stayLoaded), &own) != 0 && own.dli_fname != nullptr)
    ::dlopen(own.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

int connectWithSystem() {
  stayLoaded();
  foundation::Threads::setStarter(OwnThreads::start);
  return ::pthread_atfork(foundation::Fork::prepare, foundation::Fork::parent, foundation::Fork::child);
}

}  // namespace

LoggingHost::LoggingHost() : standardError(STDERR_FILENO) { [[maybe_unused]] static const int once = connectWithSystem(); }

}  // namespace platform::Linux
