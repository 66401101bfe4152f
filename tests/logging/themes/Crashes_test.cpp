// The log file of a process that has crashed by a signal, before the next one starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "tests/logging/RealLog.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int recordCount = 500;

void leaveNoCore() {
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::signal(SIGSEGV, SIG_DFL);
  ::signal(SIGABRT, SIG_DFL);
}

// The signal that ends a process which logs in `folder` and then does `work`.
template <class Work>
int signalThatEnds(const std::string& folder, const Work& work, const std::string& name = uniqueName()) {
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(30);
    leaveNoCore();
    const RealLog log(name, folder);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

void logSome() {
  for (int i = 0; i < recordCount; ++i) RealLog::log(true, std::to_string(i));
}

}  // namespace

TEST(Crashes, RecordsThatWaitAreWrittenBeforeTheProcessEnds) {
  const tests::TemporaryFolder folder;
  const int signal = signalThatEnds(folder.path(), [] {
    DDLog::writeOnCrash();
    logSome();
    volatile int* volatile nowhere = nullptr;
    *nowhere = 0;
  });
  EXPECT_EQ(signal, SIGSEGV);
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(recordCount));
}

TEST(Crashes, RecordsThatWaitAreWrittenBeforeAnAbort) {
  const tests::TemporaryFolder folder;
  const int signal = signalThatEnds(folder.path(), [] {
    DDLog::writeOnCrash();
    logSome();
    std::abort();
  });
  EXPECT_EQ(signal, SIGABRT);
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(recordCount));
}

TEST(Crashes, AHandlerOfTheProgramsOwnComesAfterwards) {
  const tests::TemporaryFolder folder;
  const int signal = signalThatEnds(folder.path(), [] {
    ::signal(SIGSEGV, [](int) { ::raise(SIGTERM); });
    DDLog::writeOnCrash();
    ::raise(SIGSEGV);
  });
  EXPECT_EQ(signal, SIGTERM);
}

TEST(Crashes, InsideALoggerEndTheProcessAndLeaveTheRestToTheNext) {
  class Faulty : public DDAbstractLogger {
   public:
    Faulty() : DDAbstractLogger("faulty") {}
    void logMessage(const DDLogMessage&) override { ::raise(SIGSEGV); }
  };
  const tests::TemporaryFolder folder;
  const int signal = signalThatEnds(folder.path(), [] {
    DDLog::writeOnCrash();
    DDLog::removeAllLoggers();
    DDLog::addLogger(std::make_shared<Faulty>());
    RealLog::log(false, "one");
  });
  EXPECT_EQ(signal, SIGSEGV);
  EXPECT_THAT(messagesIn(folder.path()), IsEmpty());
  { const RealLog next(uniqueName(), folder.path()); }
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("one"));
}
