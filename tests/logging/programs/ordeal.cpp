// Logging while everything goes wrong at once: memory, threads and disk fail at random, the clock jumps, the process forks,
// loggers come and go, and sixteen threads go on logging.
//
//   logging_ordeal SECONDS [PERCENT [SEED]]
//
// With PERCENT it takes that share of one processor: bursts of statements and pauses. Otherwise it takes what it can get.
//
// It runs in epochs; each has a platform and a folder of its own, and ends early when the time is over. At the end of one
// every statement must be in the files at most once, whole and in the order of its thread. It may be missing only where a
// fault accounts for it: one record for each allocation that failed, and those that the system's log counts as dropped.
// Standing still for 30 seconds is an error.
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>
#include <random>
#include <set>
#include <system_error>
#include <thread>

#include "foundation/dispatch/Clock.h"
#include "foundation/dispatch/Threads.h"
#include "logging/LogRing.h"
#include "platform/linux/OwnThreads.h"
#include "tests/logging/ForwardingStorage.h"
#include "tests/logging/RealLog.h"

using namespace tests;

namespace {

constexpr int producerCount = 16;
constexpr int epochStatements = 3000;  // of each producer, at most
constexpr unsigned secondsUntilStuck = 30;

// Chance. Each thread has a sequence of its own, which needs no memory.
std::atomic<std::uint64_t> nextSeed{1};

std::uint64_t chance() {
  thread_local std::uint64_t state = nextSeed.fetch_add(0x9E3779B97F4A7C15U) | 1U;
  state ^= state << 13U;
  state ^= state >> 7U;
  state ^= state << 17U;
  return state;
}

bool oneIn(std::uint64_t count) { return chance() % count == 0; }

// One fault in so many chances; 0: never.
struct Weather {
  std::atomic<std::uint64_t> memory{0};
  std::atomic<std::uint64_t> threads{0};
  std::atomic<std::uint64_t> disk{0};
};
Weather weather;

bool strikes(const std::atomic<std::uint64_t>& danger) {
  const std::uint64_t odds = danger.load(std::memory_order_relaxed);
  return odds != 0 && oneIn(odds);
}

struct Faults {
  std::atomic<std::uint64_t> memory{0};
  std::atomic<std::uint64_t> threads{0};
  std::atomic<std::uint64_t> disk{0};
  std::atomic<std::uint64_t> jumps{0};
  std::atomic<std::uint64_t> forks{0};
  std::atomic<std::uint64_t> loggers{0};
};
// In memory that children share: their disk is full, too, and what they tear is in the same files.
Faults& faults = *new (::mmap(nullptr, sizeof(Faults), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Faults;

// Only statements meet failing allocations, with all that they do themselves: the test's own work does not.
thread_local bool isExposed = false;

class Exposed {
 public:
  Exposed() { isExposed = true; }
  ~Exposed() { isExposed = false; }
  Exposed(const Exposed&) = delete;
  Exposed& operator=(const Exposed&) = delete;
};

std::atomic<std::uint64_t> steps{0};

using SteadyClock = std::chrono::steady_clock;

// Bursts of work and pauses, so that the process and its children take a share of one processor. Most pauses are longer
// than the second after which the watch sleeps.
class Pace {
 public:
  // 0 percent is as much as there is.
  void set(double percent, SteadyClock::time_point end) {
    _share = percent / 100;
    _end = end;
  }
  // Returns when there is a burst.
  void keep() {
    if (_share > 0) std::this_thread::sleep_until(std::min(beginOfBurst(), _end));
  }

 private:
  SteadyClock::time_point beginOfBurst() {
    const std::lock_guard lock(_mutex);
    const auto now = SteadyClock::now();
    if (now >= _burst + length) {
      const std::chrono::duration<double> due((secondsOf(RUSAGE_SELF) + secondsOf(RUSAGE_CHILDREN)) / _share);
      _burst = std::max(now, _start + std::chrono::duration_cast<SteadyClock::duration>(due));
    }
    return _burst;
  }

  static double secondsOf(int whose) {
    struct rusage usage {};
    ::getrusage(whose, &usage);
    const auto seconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
  }

  static constexpr std::chrono::milliseconds length{250};
  const SteadyClock::time_point _start = SteadyClock::now();
  SteadyClock::time_point _end;
  double _share = 0;
  std::mutex _mutex;
  SteadyClock::time_point _burst = _start;
};
Pace pace;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  ::_exit(1);
}

}  // namespace

// Not inline, or the compiler compares the halves of the pair with one another.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (isExposed && strikes(weather.memory)) {
    ++faults.memory;
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

std::thread startThread(std::function<void()> work) {
  if (strikes(weather.threads)) {
    ++faults.threads;
    if (oneIn(2)) throw std::bad_alloc();
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  }
  return platform::Linux::OwnThreads::start(std::move(work));
}

// A disk that is full now and then.
class FaultyFile final : public ForwardingFile {
 public:
  using ForwardingFile::ForwardingFile;
  std::size_t append(std::string_view bytes, int& error) override {
    if (!strikes(weather.disk)) return ForwardingFile::append(bytes, error);
    ++faults.disk;
    const std::size_t count = ForwardingFile::append(bytes.substr(0, chance() % bytes.size()), error);
    error = ENOSPC;
    return count;
  }
};

class FaultyStorage final : public ForwardingStorage {
 public:
  bool createFile(const std::string& path) override { return !isStruck() && ForwardingStorage::createFile(path); }
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
    auto file = isStruck() ? nullptr : ForwardingStorage::openFile(path);
    return file ? std::make_unique<FaultyFile>(std::move(file)) : nullptr;
  }

 private:
  static bool isStruck() {
    const bool isStruck = strikes(weather.disk);
    if (isStruck) ++faults.disk;
    return isStruck;
  }
};

// The system's clock, which the user sets now and then.
class JumpingClock final : public foundation::Clock {
 public:
  JumpingClock() : _real(current()) { replaceCurrent(this); }
  ~JumpingClock() override { replaceCurrent(nullptr); }
  JumpingClock(const JumpingClock&) = delete;
  JumpingClock& operator=(const JumpingClock&) = delete;

  void jump() {
    _offset = static_cast<std::int64_t>(chance() % 2'000'000) - 1'000'000;
    ++faults.jumps;
  }
  [[nodiscard]] foundation::Date now() const override { return _real.now() + std::chrono::seconds(_offset.load()); }
  [[nodiscard]] foundation::Uptime uptime() const override { return _real.uptime(); }
  CallID callAt(foundation::Uptime when, std::function<void()> action) override {
    return _real.callAt(when, std::move(action));
  }
  void cancel(CallID call) override { _real.cancel(call); }

 private:
  foundation::Clock& _real;
  std::atomic<std::int64_t> _offset{0};
};

// A logger that comes and goes.
class Guest final : public DDAbstractLogger {
 public:
  Guest() : DDAbstractLogger("guest") {}
  void logMessage(const DDLogMessage& message) override {
    if (message.logMsg().empty()) fail("a record without a text");
    if (oneIn(64)) throw std::runtime_error("a guest's fault");
  }
};

// A text that begins and ends with its name: where two processes share a file on a full disk, the halves of two lines may
// make one, and that must not look like a third.
std::string named(const std::string& name, const std::string& between = "") { return "=" + name + "=" + between + name; }

// One statement, "THREAD:NUMBER" by name, and something to make it longer.
std::string textOf(int thread, int number) {
  std::string between;
  if (oneIn(200)) between.append(chance() % 20000, 'x');
  if (oneIn(5000)) between.append(300000, 'y');
  return named(std::to_string(thread) + ":" + std::to_string(number), between);
}

struct Producer {
  int made = 0;
  std::uint64_t thrown = 0;
  void log(int thread) {
    const std::string text = textOf(thread, made++);
    const bool isAsynchronous = !oneIn(50);
    try {
      const Exposed exposed;
      RealLog::log(isAsynchronous, text);
    } catch (const std::bad_alloc&) {
      ++thrown;
    }
    ++steps;
    if (oneIn(100)) pace.keep();
  }
};

void forkOnce() {
  ++faults.forks;
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(secondsUntilStuck);
    for (int i = 0; i < 3; ++i) RealLog::log(i < 2, named("child:" + std::to_string(i) + ":" + std::to_string(::getpid())));
    DDLog::flushLog();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (status != 0) fail("a child ended with status " + std::to_string(status));
}

void changeWeather() {
  weather.memory = oneIn(2) ? 50 + chance() % 1000 : 0;
  weather.threads = oneIn(2) ? 1 + chance() % 4 : 0;
  weather.disk = oneIn(3) ? 2 + chance() % 20 : 0;
}

void calm() { weather.memory = weather.threads = weather.disk = 0; }

// The others of an epoch, each for as long as it lasts.
class Trouble {
 public:
  Trouble(RealLog& log, JumpingClock& clock) : _log(log), _clock(clock) {
    start([] { forkOnce(); }, 20);
    start([] { changeWeather(); }, 5);
    start([] { comeAndGo(); }, 1);
    start([this] { reconfigure(); }, 3);
  }
  ~Trouble() {
    _isOver = true;
    for (auto& thread : _threads) thread.join();
    calm();
  }
  Trouble(const Trouble&) = delete;
  Trouble& operator=(const Trouble&) = delete;

 private:
  void start(std::function<void()> act, std::uint64_t milliseconds) {
    _threads.emplace_back([this, act = std::move(act), milliseconds] {
      for (; !_isOver; std::this_thread::sleep_for(std::chrono::milliseconds(1 + chance() % (2 * milliseconds)))) {
        act();
        pace.keep();
      }
    });
  }

  static void comeAndGo() {
    const auto guest = std::make_shared<Guest>();
    DDLog::addLogger(guest);
    if (oneIn(2)) DDLog::flushLog();
    DDLog::removeLogger(guest);
    ++faults.loggers;
  }

  void reconfigure() {
    const std::uint64_t kind = chance() % 5;
    if (kind == 0) _clock.jump();
    if (kind == 1) _log.logger->rollLogFile();
    if (kind == 2) _log.logger->setMaximumFileSize(100000 + chance() % 3000000);
    if (kind == 3) _log.logger->setRollingFrequency(1.0 + static_cast<double>(chance() % 100000));
    if (kind == 4) _log.logger->setLogFormatter(std::make_shared<DDLogFileFormatterDefault>());
  }

  RealLog& _log;
  JumpingClock& _clock;
  std::atomic<bool> _isOver{false};
  std::vector<std::thread> _threads;
};

// All that is in the files of a folder.
class Findings {
 public:
  explicit Findings(const std::string& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      if (DDLogFileManagerDefault::isLogFile(entry.path().filename().string())) readFile(entry.path());
  }
  [[nodiscard]] std::uint64_t countOf(int thread) const {
    const auto place = _numbers.find(thread);
    return place == _numbers.end() ? 0 : place->second.size();
  }
  // "THREAD:NUMBER" of each statement of a thread that is not there.
  [[nodiscard]] std::string missing(int thread, int made) const {
    std::string list;
    const auto place = _numbers.find(thread);
    for (int i = 0; i < made; ++i)
      if (place == _numbers.end() || !place->second.contains(i))
        list += std::to_string(thread) + ":" + std::to_string(i) + " ";
    return list;
  }
  [[nodiscard]] std::uint64_t torn() const { return _torn; }
  [[nodiscard]] const std::string& firstTorn() const { return _firstTorn; }

 private:
  void readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    _last.clear();
    for (std::string line; std::getline(file, line); ++steps)
      if (!line.empty() && !isKnown(line) && _torn++ == 0) _firstTorn = line.substr(0, 200);
  }

  bool isKnown(const std::string& line) {
    constexpr std::size_t stamp = std::string_view("yyyy/MM/dd HH:mm:ss:SSS  ").size();
    if (line.size() <= stamp || line[4] != '/' || line[stamp] != '=' || std::ranges::count(line, '=') != 2) return false;
    const std::size_t end = line.find('=', stamp + 1);
    const std::string name = line.substr(stamp + 1, end - stamp - 1);
    // Where memory was short, the beginning of a long text stands for all of it.
    const bool isBeginning = line.size() - stamp == LogSlot::inlineCapacity;
    if (!isBeginning && !std::string_view(line).substr(end + 1).ends_with(name)) return false;
    if (name.starts_with("child:")) {
      if (!_children.insert(name).second) fail("twice: " + line);
      return true;
    }
    int thread = 0;
    int number = 0;
    if (std::sscanf(name.c_str(), "%d:%d", &thread, &number) != 2) return false;
    if (!_numbers[thread].insert(number).second) fail("twice: " + line.substr(0, 100));
    if (_last.contains(thread) && _last[thread] > number) fail("out of order: " + line.substr(0, 100));
    _last[thread] = number;
    return true;
  }

  std::uint64_t _torn = 0;
  std::string _firstTorn;
  std::map<int, int> _last;  // of the file at hand
  std::map<int, std::set<int>> _numbers;
  std::set<std::string> _children;
};

// The records that the system's log counts as dropped.
std::uint64_t reportedDrops(const std::vector<std::string>& lines) {
  std::uint64_t sum = 0;
  for (const auto& line : lines) {
    unsigned long long count = 0;
    if (std::sscanf(line.c_str(), "DDFileLogger: %llu records could not be written", &count) == 1) sum += count;
  }
  return sum;
}

struct Totals {
  std::uint64_t made = 0;
  std::uint64_t missing = 0;
};

void runEpoch(Totals& totals, SteadyClock::time_point end) {
  const tests::TemporaryFolder folder;
  const std::uint64_t memoryFaults = faults.memory;
  const std::uint64_t diskFaults = faults.disk;
  std::vector<Producer> producers(producerCount);
  std::vector<std::string> said;
  {
    FaultyStorage storage;
    RealLog log(uniqueName(), folder.path(), &storage);
    JumpingClock clock;
    foundation::Threads::setStarter(startThread);
    {
      const Trouble trouble(log, clock);
      std::vector<std::thread> threads;
      for (int t = 0; t < producerCount; ++t)
        threads.emplace_back([&, t] {
          for (int i = 0; i < epochStatements && SteadyClock::now() < end; ++i)
            producers[static_cast<std::size_t>(t)].log(t);
        });
      for (auto& thread : threads) thread.join();
    }
    DDLog::flushLog();
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    said = log.fake.systemLog.lines;
  }
  const Findings findings(folder.path());
  if (findings.torn() > 2 * (faults.disk - diskFaults))
    fail(std::to_string(findings.torn()) + " lines are torn: " + findings.firstTorn());
  const std::uint64_t dropped = reportedDrops(said);
  const std::uint64_t failed = faults.memory - memoryFaults;
  const std::uint64_t allowed = dropped + failed + findings.torn();
  std::uint64_t missing = 0;
  for (int t = 0; t < producerCount; ++t) {
    const auto& producer = producers[static_cast<std::size_t>(t)];
    missing += static_cast<std::uint64_t>(producer.made) - findings.countOf(t);
    totals.made += static_cast<std::uint64_t>(producer.made);
  }
  totals.missing += missing;
  if (missing <= allowed) return;
  for (int t = 0; t < producerCount; ++t)
    std::fprintf(stderr, "%s", findings.missing(t, producers[static_cast<std::size_t>(t)].made).c_str());
  for (const auto& line : said) std::fprintf(stderr, "\nsystem log: %s", line.substr(0, 200).c_str());
  fail("\n" + std::to_string(missing) + " records are missing; accounted for: " + std::to_string(failed) +
       " failed allocations, " + std::to_string(dropped) + " dropped records, " + std::to_string(findings.torn()) +
       " torn lines");
}

void watchSteps() {
  std::thread([] {
    for (std::uint64_t last = ~std::uint64_t{0};; std::this_thread::sleep_for(std::chrono::seconds(secondsUntilStuck))) {
      const std::uint64_t now = steps;
      if (now == last) {
        std::fprintf(stderr, "nothing moves any more\n");
        std::abort();
      }
      last = now;
    }
  }).detach();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const auto end = SteadyClock::now() + std::chrono::seconds(std::atoi(argv[1]));
  pace.set(argc > 2 ? std::atof(argv[2]) : 0, end);
  const std::uint64_t seed = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : std::random_device()();
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  nextSeed = seed * 2 + 1;
  watchSteps();
  Totals totals;
  int epochs = 0;
  for (; SteadyClock::now() < end; ++epochs) runEpoch(totals, end);
  const auto number = [](const std::atomic<std::uint64_t>& value) { return static_cast<unsigned long long>(value); };
  std::printf(
      "%d epochs, %llu statements, %llu missing for a reason; failed: %llu allocations, %llu threads, %llu writes; %llu "
      "jumps of the clock, %llu forks, %llu guests\n",
      epochs, static_cast<unsigned long long>(totals.made), static_cast<unsigned long long>(totals.missing),
      number(faults.memory), number(faults.threads), number(faults.disk), number(faults.jumps), number(faults.forks),
      number(faults.loggers));
  return 0;
}
