#include "platform/linux/OwnThreads.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <utility>

namespace platform::Linux::OwnThreads {
namespace {

cpu_set_t ownProcessors() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  ::sched_getaffinity(0, sizeof processors, &processors);
  return processors;
}

// As the program was loaded, before any of its threads was bound to a processor.
const cpu_set_t processorsAtStart = ownProcessors();

// All but those that a thread raises by a fault of its own.
sigset_t signalsOfOthers() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) sigdelset(&signals, fault);
  return signals;
}

// The calling thread's signals are blocked for as long as this lives: a new thread has the mask of its maker.
class BlockedSignals {
 public:
  BlockedSignals() {
    const sigset_t signals = signalsOfOthers();
    ::pthread_sigmask(SIG_BLOCK, &signals, &_before);
  }
  ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t _before{};
};

void becomeOrdinary() {
  const sched_param parameters{};
  ::pthread_setschedparam(::pthread_self(), SCHED_OTHER, &parameters);
  ::sched_setaffinity(0, sizeof processorsAtStart, &processorsAtStart);
}

}  // namespace

std::thread start(std::function<void()> work) {
  const BlockedSignals blocked;
  return std::thread([work = std::move(work)] {
    becomeOrdinary();
    work();
  });
}

}  // namespace platform::Linux::OwnThreads
