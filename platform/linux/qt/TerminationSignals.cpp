#include "platform/linux/qt/TerminationSignals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace platform::Linux {
namespace {

constexpr int requests[] = {SIGTERM, SIGINT, SIGHUP};

// Written by the handler, so it stays open for the life of the process.
int wakeUp() {
  static const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return descriptor;
}

int handlerDescriptor = -1;
volatile std::sig_atomic_t lastSignal = 0;

const char* nameOf(int signal) { return signal == SIGTERM ? "SIGTERM" : signal == SIGINT ? "SIGINT" : "SIGHUP"; }

void noteRequest(int signal) {
  lastSignal = signal;
  const int before = errno;
  eventfd_write(handlerDescriptor, 1);
  errno = before;
}

void setHandler(int signal, void (*handler)(int)) {
  struct sigaction current {};
  sigaction(signal, nullptr, &current);
  if (current.sa_handler == SIG_IGN) return;
  struct sigaction wanted {};
  wanted.sa_handler = handler;
  wanted.sa_flags = SA_RESTART;
  sigaction(signal, &wanted, nullptr);
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void(const char* name)> onRequest) {
  handlerDescriptor = wakeUp();
  if (handlerDescriptor < 0) return;
  _notifier = std::make_unique<QSocketNotifier>(handlerDescriptor, QSocketNotifier::Read);
  QObject::connect(_notifier.get(), &QSocketNotifier::activated, _notifier.get(), [action = std::move(onRequest)] {
    eventfd_t count = 0;
    eventfd_read(handlerDescriptor, &count);
    action(nameOf(lastSignal));
  });
  for (const int signal : requests) setHandler(signal, noteRequest);
}

TerminationSignals::~TerminationSignals() {
  for (const int signal : requests) setHandler(signal, SIG_DFL);
}

}  // namespace platform::Linux
