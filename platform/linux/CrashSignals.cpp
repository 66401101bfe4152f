#include "platform/linux/CrashSignals.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>

namespace platform::Linux {
namespace {

constexpr int signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
// Another thread that crashes meanwhile leaves the first one this much time.
constexpr unsigned secondsForTheFirst = 2;

struct sigaction before[std::size(signals)];
constinit std::atomic<void (*)()> theAction{nullptr};
constinit std::atomic<bool> hasBegun{false};

void restore(int signal) {
  const auto index = std::ranges::find(signals, signal) - std::begin(signals);
  ::sigaction(signal, &before[index], nullptr);
}

void handle(int signal, siginfo_t* information, void* /*context*/) {
  const int error = errno;
  if (!hasBegun.exchange(true))
    theAction.load()();
  else
    ::sleep(secondsForTheFirst);
  restore(signal);
  // A defect happens again when the handler returns; a signal that somebody sent does not.
  if (information->si_code <= 0) ::raise(signal);
  errno = error;
}

}  // namespace

void callBeforeCrash(void (*action)()) {
  if (theAction.exchange(action) != nullptr) return;
  struct sigaction own {};
  own.sa_sigaction = handle;
  own.sa_flags = SA_SIGINFO | SA_ONSTACK;
  for (std::size_t i = 0; i < std::size(signals); ++i) ::sigaction(signals[i], &own, &before[i]);
}

}  // namespace platform::Linux
