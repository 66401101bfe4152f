// The framework when its process is killed, ends or forks, and when two processes share a folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "tests/logging/ForwardingStorage.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"

using namespace tests;
using testing::IsEmpty;

namespace {

constexpr int threadCount = 4;

// How many calls of each thread have returned; shared with a forked process.
struct Progress {
  std::atomic<int> returned[threadCount];
};

class SharedProgress {
 public:
  SharedProgress()
      : _address(::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  ~SharedProgress() { ::munmap(_address, sizeof(Progress)); }
  SharedProgress(const SharedProgress&) = delete;
  SharedProgress& operator=(const SharedProgress&) = delete;
  Progress* operator->() { return static_cast<Progress*>(_address); }
  [[nodiscard]] int total() {
    int sum = 0;
    for (const auto& one : (*this)->returned) sum += one;
    return sum;
  }

 private:
  void* _address;
};

// Runs `work` in a process of its own that dies with this one.
template <class Work>
pid_t inProcess(const Work& work) {
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  work();
  ::_exit(0);
}

int statusOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

std::string text(int thread, int number) { return std::to_string(thread) + ":" + std::to_string(number) + " of a record"; }

// Logs from four threads until it is killed.
void logForEver(const std::string& name, const std::string& folder, SharedProgress& progress, bool asynchronous) {
  RealLog log(name, folder);
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0;; ++i) {
        RealLog::log(asynchronous, text(t, i));
        progress->returned[t] = i + 1;
      }
    });
  for (auto& thread : threads) thread.join();
}

void killAfterSome(pid_t child, SharedProgress& progress) {
  std::mt19937 random(std::random_device{}());
  const int some = 50 + static_cast<int>(random() % 3000);
  ASSERT_TRUE(tests::eventually([&] { return progress.total() >= some; }));
  ::kill(child, SIGKILL);
  statusOf(child);
}

// Every record whose call returned is there, none twice, and every line is whole.
void expectAll(const std::string& folder, SharedProgress& progress) {
  std::map<std::string, int> seen;
  for (const auto& message : messagesIn(folder)) {
    EXPECT_FALSE(message.starts_with("torn")) << message;
    ++seen[message];
  }
  for (int t = 0; t < threadCount; ++t)
    for (int i = 0; i < progress->returned[t]; ++i) ASSERT_EQ(seen[text(t, i)], 1) << text(t, i);
  for (const auto& [message, count] : seen) ASSERT_EQ(count, 1) << message;
}

}  // namespace

TEST(Processes, AKilledProcessHasItsSynchronousRecordsOnFile) {
  for (int round = 0; round < 10; ++round) {
    const tests::TemporaryFolder folder;
    SharedProgress progress;
    const pid_t child = inProcess([&] { logForEver(uniqueName(), folder.path(), progress, false); });
    killAfterSome(child, progress);
    const auto messages = messagesIn(folder.path());
    std::map<std::string, int> seen;
    for (const auto& message : messages) ++seen[message];
    // The last line may be half one; in the middle there is none.
    for (std::size_t i = 0; i + 1 < messages.size(); ++i) EXPECT_FALSE(messages[i].starts_with("torn")) << messages[i];
    for (int t = 0; t < threadCount; ++t)
      for (int i = 0; i < progress->returned[t]; ++i) ASSERT_EQ(seen[text(t, i)], 1) << text(t, i);
  }
}

TEST(Processes, TheNextProcessCompletesTheRecordsOfAKilledOne) {
  const std::string name = uniqueName();
  for (int round = 0; round < 10; ++round) {
    const tests::TemporaryFolder folder;
    SharedProgress progress;
    const pid_t child = inProcess([&] { logForEver(name, folder.path(), progress, true); });
    killAfterSome(child, progress);
    { const RealLog next(name, folder.path()); }
    expectAll(folder.path(), progress);
  }
}

TEST(Processes, ARecordThatWaitsBehindAStuckLoggerSurvivesTheProcess) {
  class Stuck : public DDAbstractLogger {
   public:
    Stuck() : DDAbstractLogger("stuck") {}
    void logMessage(const DDLogMessage&) override { ::raise(SIGKILL); }
  };
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  const pid_t child = inProcess([&] {
    RealLog log(name, folder.path());
    DDLog::removeAllLoggers();
    DDLog::addLogger(std::make_shared<Stuck>());
    // Nothing is delivered before the block ends.
    DDLog::loggingQueue().sync([] {
      for (int i = 0; i < 900; ++i) RealLog::log(true, std::to_string(i));
      RealLog::log(true, "the end");
    });
    DDLog::flushLog();
  });
  EXPECT_TRUE(WIFSIGNALED(statusOf(child)));
  { const RealLog next(name, folder.path()); }
  auto messages = messagesIn(folder.path());
  ASSERT_EQ(messages.size(), 901);
  for (int i = 0; i < 900; ++i) EXPECT_EQ(messages[i], std::to_string(i));
  EXPECT_EQ(messages[900], "the end");
}

namespace {

// The process dies at its write of a certain number, before or after it.
class DeadlyStorage final : public ForwardingStorage {
 public:
  DeadlyStorage(int writes, bool isAfterwards) : _writes(writes), _isAfterwards(isAfterwards) {}
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
    auto file = ForwardingStorage::openFile(path);
    return file ? std::make_unique<DeadlyFile>(std::move(file), *this) : nullptr;
  }

 private:
  class DeadlyFile final : public ForwardingFile {
   public:
    DeadlyFile(std::unique_ptr<platform::LogFile> file, DeadlyStorage& storage)
        : ForwardingFile(std::move(file)), _storage(storage) {}
    std::size_t append(std::string_view bytes, int& error) override {
      const bool isLast = --_storage._writes == 0;
      if (isLast && !_storage._isAfterwards) ::raise(SIGKILL);
      const std::size_t written = ForwardingFile::append(bytes, error);
      if (isLast) ::raise(SIGKILL);
      return written;
    }

   private:
    DeadlyStorage& _storage;
  };

  int _writes;
  const bool _isAfterwards;
};

constexpr int recordsLeft = 12;

// A process that is killed with records in its memory, of which file loggers have put the first aside.
void leaveRecords(const std::string& name, const std::string& folder) {
  const pid_t child = inProcess([&] {
    RealLog log(name, folder);
    class Deadly final : public DDAbstractLogger {
     public:
      Deadly() : DDAbstractLogger("deadly") {}
      void logMessage(const DDLogMessage&) override { ::raise(SIGKILL); }
    };
    DDLog::addLogger(std::make_shared<Deadly>());
    DDLog::loggingQueue().sync([] {
      for (int i = 0; i < recordsLeft; ++i) RealLog::log(true, std::to_string(i));
    });
    DDLog::flushLog();
  });
  ASSERT_TRUE(WIFSIGNALED(statusOf(child)));
}

// The messages in the files after a first process left records, a second was killed at one of the writes by which it
// completed them, and a third came.
std::vector<std::string> messagesAfterKills(int writes, bool isAfterwards) {
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  leaveRecords(name, folder.path());
  const pid_t second = inProcess([&] {
    DeadlyStorage storage(writes, isAfterwards);
    const RealLog log(name, folder.path(), &storage);
  });
  EXPECT_TRUE(WIFSIGNALED(statusOf(second)));
  { const RealLog third(name, folder.path()); }
  return messagesIn(folder.path());
}

}  // namespace

TEST(Processes, OneThatIsKilledBeforeItWritesAnothersRecordLeavesTheRestToTheNext) {
  std::vector<std::string> all;
  for (int i = 0; i < recordsLeft; ++i) all.push_back(std::to_string(i));
  for (int writes = 1; writes <= recordsLeft; ++writes)
    EXPECT_EQ(messagesAfterKills(writes, false), all) << "killed at write " << writes;
}

// The write and the note of it are two steps.
TEST(Processes, OneThatIsKilledAfterItHasWrittenAnothersRecordDoublesThatOneAtMost) {
  for (int writes = 1; writes <= recordsLeft; ++writes) {
    auto messages = messagesAfterKills(writes, true);
    EXPECT_LE(messages.size(), recordsLeft + 1) << "killed at write " << writes;
    messages.erase(std::unique(messages.begin(), messages.end()), messages.end());
    ASSERT_EQ(messages.size(), recordsLeft) << "killed at write " << writes;
    for (int i = 0; i < recordsLeft; ++i) EXPECT_EQ(messages[i], std::to_string(i)) << "killed at write " << writes;
  }
}

TEST(Processes, AnOrderlyEndLeavesNothingToComplete) {
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  {
    const RealLog log(name, folder.path());
    RealLog::log(true, "one");
  }
  platform::Linux::SurvivingMemories memories(RealLog::memoryFolder(folder.path()));
  EXPECT_THAT(memories.orphans(name, sizeof(LogMemory)), IsEmpty());
}

TEST(Processes, AThousandRecordsRightBeforeTheEndAreOnFile) {
  const tests::TemporaryFolder folder;
  const pid_t child = inProcess([&] {
    // Never destroyed, as an object of `main` is not when somebody calls exit.
    new RealLog(uniqueName(), folder.path());
    for (int i = 0; i < 1000; ++i) RealLog::log(true, std::to_string(i));
    std::exit(0);
  });
  EXPECT_EQ(statusOf(child), 0);
  const auto messages = messagesIn(folder.path());
  ASSERT_EQ(messages.size(), 1000);
  EXPECT_EQ(messages[999], "999");
}

TEST(Processes, AStaticObjectMayLogWhileItIsDestroyed) {
  struct Talkative {
    ~Talkative() {
      for (int i = 0; i < 1500; ++i) RealLog::log(i % 2 == 0, "farewell");
    }
  };
  const tests::TemporaryFolder folder;
  const pid_t child = inProcess([&] {
    static const Talkative talkative;
    new RealLog(uniqueName(), folder.path());
    RealLog::log(true, "life");
    std::exit(0);
  });
  EXPECT_EQ(statusOf(child), 0);
  EXPECT_EQ(messagesIn(folder.path()).size(), 1501);
}

TEST(Processes, LoggingAfterThePlatformIsGoneIsHarmless) {
  const tests::TemporaryFolder folder;
  { const RealLog log(uniqueName(), folder.path()); }
  RealLog::log(false, "too late");
  RealLog::log(true, "too late");
  DDLog::flushLog();
  EXPECT_THAT(messagesIn(folder.path()), IsEmpty());
}

TEST(Processes, AForkedChildWritesItsOwnRecordsOnceAndNoneOfItsParents) {
  const tests::TemporaryFolder folder;
  const RealLog log(uniqueName(), folder.path());
  std::atomic<bool> isEnding{false};
  std::atomic<int> parents{0};
  std::thread busy([&] {
    for (; !isEnding; ++parents) RealLog::log(true, "parent " + std::to_string(parents.load()));
  });
  ASSERT_TRUE(tests::eventually([&] { return parents > 2000; }));
  for (int generation = 0; generation < 3; ++generation) {
    const pid_t child = inProcess([&] {
      for (int i = 0; i < 5000; ++i)
        RealLog::log(i % 1000 != 0, "child " + std::to_string(generation) + " " + std::to_string(i));
      DDLog::flushLog();
    });
    ASSERT_EQ(statusOf(child), 0);
  }
  isEnding = true;
  busy.join();
  DDLog::flushLog();
  std::map<std::string, int> seen;
  for (const auto& message : messagesIn(folder.path())) ++seen[message];
  for (const auto& [message, count] : seen) ASSERT_EQ(count, 1) << message;
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(parents.load()) + 15000);
}

namespace {

// The number of records that the parent had logged before, and whether its memory could outlive it.
struct Before {
  int records;
  bool survives;
};

class AForkedChild : public testing::TestWithParam<Before> {};

}  // namespace

TEST_P(AForkedChild, WaitsForRoomAndGetsEachOfItsRecordsOnce) {
  const tests::TemporaryFolder folder;
  // A file in the place of its folder.
  if (!GetParam().survives) std::ofstream(folder.path() + "/.memory").put('\n');
  const RealLog log(uniqueName(), folder.path());
  for (int i = 0; i < GetParam().records; ++i) RealLog::log(true, "parent " + std::to_string(i));
  DDLog::flushLog();
  constexpr int records = 5000;
  const pid_t child = inProcess([&] {
    ::alarm(60);
    // Much slower than the caller, who finds the ring full nearly all of the time.
    class Slow final : public DDAbstractLogger {
     public:
      Slow() : DDAbstractLogger("slow") {}
      void logMessage(const DDLogMessage&) override {
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(10);
        while (std::chrono::steady_clock::now() < end) {
        }
      }
    };
    DDLog::addLogger(std::make_shared<Slow>());
    for (int i = 0; i < records; ++i) RealLog::log(true, "child " + std::to_string(i));
    DDLog::flushLog();
  });
  ASSERT_EQ(statusOf(child), 0);
  std::map<std::string, int> seen;
  for (const auto& message : messagesIn(folder.path())) ++seen[message];
  for (const auto& [message, count] : seen) EXPECT_EQ(count, 1) << message;
  EXPECT_EQ(std::ssize(seen), GetParam().records + records);
}

INSTANTIATE_TEST_SUITE_P(Memories, AForkedChild,
                         testing::Values(Before{500, true}, Before{3000, true}, Before{500, false}, Before{3000, false}),
                         [](const auto& each) {
                           return std::to_string(each.param.records) + (each.param.survives ? "Surviving" : "Plain");
                         });

TEST(Processes, AForkedChildHasTheThreadNumberOfItsOwn) {
  const tests::TemporaryFolder folder;
  platform::Linux::LoggingHost host;
  platform::fake::FakePlatform fake;
  fake.platform.loggingHost = &host.host;
  const auto isOwn = [&] {
    return DDLogMessage("", 0, 0, 0, "", nullptr, 0).machThreadID() == host.process.currentThreadIdentifier();
  };
  // On a thread that has not asked for its number yet.
  std::thread([&] {
    EXPECT_TRUE(isOwn());
    EXPECT_EQ(statusOf(inProcess([&] { ::_exit(isOwn() ? 0 : 1); })), 0);
  }).join();
}

namespace {

// Counts how often a file that somebody had open turned out to be removed.
class CountingStorage final : public ForwardingStorage {
 public:
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
    auto file = ForwardingStorage::openFile(path);
    return file ? std::make_unique<Watched>(std::move(file), *this, path) : nullptr;
  }
  bool removeFile(const std::string& path) override {
    const bool isRemoved = ForwardingStorage::removeFile(path);
    if (isRemoved) ++removals;
    return isRemoved;
  }

  int lost = 0;
  int removals = 0;

 private:
  class Watched final : public ForwardingFile {
   public:
    Watched(std::unique_ptr<platform::LogFile> file, CountingStorage& storage, std::string path)
        : ForwardingFile(std::move(file)), _storage(storage), _path(std::move(path)) {}
    std::size_t append(std::string_view bytes, int& error) override {
      const std::size_t written = ForwardingFile::append(bytes, error);
      if (placeOf(_path) == Place::unlinked) ++_storage.lost;
      return written;
    }

   private:
    CountingStorage& _storage;
    const std::string _path;
  };
};

}  // namespace

TEST(Processes, TwoProcessesInOneFolderDeleteNoFileThatTheOtherWrites) {
  const tests::TemporaryFolder folder;
  std::vector<pid_t> children;
  for (int p = 0; p < 2; ++p)
    children.push_back(inProcess([&] {
      CountingStorage storage;
      RealLog log(uniqueName() + std::to_string(p), folder.path(), &storage);
      log.manager->setMaximumNumberOfLogFiles(0);
      log.logger->setMaximumFileSize(2000);
      for (int i = 0; i < 3000; ++i) RealLog::log(false, "process " + std::to_string(p) + " record " + std::to_string(i));
      ::_exit(storage.lost > 0 ? 1 : storage.removals == 0 ? 2 : 0);
    }));
  for (const pid_t child : children) EXPECT_EQ(statusOf(child), 0);
}

TEST(Processes, TwoProcessesInOneFolderLoseNoRecordAndTearNoLine) {
  const tests::TemporaryFolder folder;
  std::vector<pid_t> children;
  for (int p = 0; p < 2; ++p)
    children.push_back(inProcess([&] {
      RealLog log(uniqueName() + std::to_string(p), folder.path());
      log.manager->setMaximumNumberOfLogFiles(10000);
      log.logger->setMaximumFileSize(5000);
      for (int i = 0; i < 3000; ++i) RealLog::log(i % 3 != 0, std::to_string(p) + " " + std::to_string(i));
      DDLog::flushLog();
    }));
  for (const pid_t child : children) EXPECT_EQ(statusOf(child), 0);
  auto messages = messagesIn(folder.path());
  std::ranges::sort(messages);
  EXPECT_EQ(messages.size(), 6000);
  EXPECT_EQ(std::ranges::adjacent_find(messages), messages.end());
  for (const auto& message : messages) EXPECT_FALSE(message.starts_with("torn")) << message;
}
