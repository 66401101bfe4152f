#include "platform/linux/terminal/Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>

namespace platform::Linux {
namespace {

sigset_t requestsNotIgnored() {
  sigset_t requests;
  sigemptyset(&requests);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    if (current.sa_handler != SIG_IGN) sigaddset(&requests, signal);
  }
  return requests;
}

}  // namespace

TerminationRequests::TerminationRequests() {
  const sigset_t requests = requestsNotIgnored();
  ::pthread_sigmask(SIG_BLOCK, &requests, nullptr);
  _signals = posix::Descriptor(::signalfd(-1, &requests, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::string TerminationRequests::next() const {
  signalfd_siginfo information{};
  if (::read(_signals.get(), &information, sizeof information) != sizeof information) return {};
  const auto signal = static_cast<int>(information.ssi_signo);
  return signal == SIGTERM ? "SIGTERM" : signal == SIGINT ? "SIGINT" : "SIGHUP";
}

void InterruptibleCall::run(const std::function<void()>& call) {
  const posix::Descriptor done(::eventfd(0, EFD_CLOEXEC));
  std::thread worker;
  try {
    worker = std::thread([&] {
      call();
      eventfd_write(done.get(), 1);
    });
  } catch (const std::system_error&) {
    return call();  // the system has no thread to spare
  }
  waitFor(done.get());
  worker.join();
}

void InterruptibleCall::waitFor(int done) const {
  pollfd events[] = {{done, POLLIN, 0}, {_requests.descriptor(), POLLIN, 0}};
  do {
    events[0].revents = events[1].revents = 0;
    ::poll(events, 2, -1);
    if (events[1].revents == 0) continue;
    for (auto signal = _requests.next(); !signal.empty(); signal = _requests.next()) onSignal(signal);
  } while (events[0].revents == 0);
}

}  // namespace platform::Linux
