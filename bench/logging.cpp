// The logging framework against spdlog, glog and bare system calls: the same lines (a local-time stamp with milliseconds
// and a message with a formatted integer and string), all on file at the end, in turn and as medians.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

#include "bench/LoggingPeers.h"
#include "bench/Report.h"
#include "logging/KTLogger.h"
#include "platform/linux/UserDefaults.h"

namespace {

using namespace bench;
using Clock = std::chrono::steady_clock;

using MakePeer = std::function<std::unique_ptr<Peer>()>;
struct Contender {
  std::string name;
  MakePeer make;
};

struct Latencies {
  double p50;
  double p99;
  double p999;
};

Latencies quantiles(std::vector<double>& times) {
  std::ranges::sort(times);
  const auto at = [&](double share) {
    return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
  };
  return {at(0.5), at(0.99), at(0.999)};
}

// The times of single calls, in nanoseconds; between two calls `pace` passes.
Latencies latenciesOf(Peer& peer, int calls, std::chrono::nanoseconds pace) {
  std::vector<double> times;
  times.reserve(static_cast<std::size_t>(calls));
  for (int i = 0; i < calls / 10; ++i) peer.log(i);
  auto next = Clock::now();
  for (int i = 0; i < calls; ++i) {
    next += pace;
    while (Clock::now() < next) {
    }
    const auto start = Clock::now();
    peer.log(i);
    times.push_back(static_cast<double>((Clock::now() - start).count()));
  }
  peer.finish();
  return quantiles(times);
}

// Records a second, from the first call until all are on file.
double throughputOf(const MakePeer& make, int producers, int records) {
  const auto peer = make();
  const auto start = Clock::now();
  std::vector<std::thread> threads;
  for (int t = 0; t < producers; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < records / producers; ++i) peer->log(i);
    });
  for (auto& thread : threads) thread.join();
  peer->finish();
  return records / std::chrono::duration<double>(Clock::now() - start).count();
}

// Records a second: the median round, and the slowest and the fastest one.
struct Rate {
  double median;
  double least;
  double most;
};

// Each contender in turn, `rounds` times.
std::vector<Rate> inTurn(const std::vector<Contender>& contenders, int rounds,
                         const std::function<double(const Contender&)>& measure) {
  std::vector<std::vector<double>> values(contenders.size());
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < contenders.size(); ++i) values[i].push_back(measure(contenders[i]));
  std::vector<Rate> rates;
  for (const auto& list : values) rates.push_back({median(list), std::ranges::min(list), std::ranges::max(list)});
  return rates;
}

void addRates(Report& report, const std::string& work, const std::vector<Contender>& contenders,
              const std::vector<Rate>& rates) {
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    const std::string figure = work + ": " + contenders[i].name;
    if (i == 0)
      report.add(figure, rates[i].median / 1e6, "M/s");
    else
      report.add(figure, rates[i].median / 1e6, "M/s", "(ours is this much faster)", rates[0].median / rates[i].median);
    report.add("    slowest round", rates[i].least / 1e6, "M/s");
    report.add("    fastest round", rates[i].most / 1e6, "M/s");
  }
}

void benchLatency(Report& report, const std::string& work, const std::vector<Contender>& contenders, int calls,
                  std::chrono::nanoseconds pace, int rounds) {
  std::vector<std::array<std::vector<double>, 3>> values(contenders.size());
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      auto peer = contenders[i].make();
      const auto latencies = latenciesOf(*peer, calls, pace);
      values[i][0].push_back(latencies.p50);
      values[i][1].push_back(latencies.p99);
      values[i][2].push_back(latencies.p999);
    }
  const char* names[] = {"p50", "p99", "p99.9"};
  for (std::size_t q = 0; q < 3; ++q) {
    const double own = median(values[0][q]);
    report.add(work + " " + names[q] + ": " + contenders[0].name, own, "ns");
    for (std::size_t i = 1; i < contenders.size(); ++i) {
      const double theirs = median(values[i][q]);
      report.add(work + " " + names[q] + ": " + contenders[i].name, theirs, "ns", "(ours is this much faster)",
                 theirs / own);
    }
  }
}

std::vector<Contender> asynchronousContenders() {
  std::vector<Contender> contenders{{"ours", [] { return std::make_unique<Ours>(freshFolder("ours")); }}};
#ifdef KELTO_HAS_SPDLOG
  contenders.push_back({"spdlog async", [] { return std::make_unique<Spdlog>(freshFolder("spdlog")); }});
#endif
#ifdef KELTO_HAS_GLOG
  contenders.push_back({"glog", [] { return std::make_unique<Glog>(freshFolder("glog")); }});
#endif
  return contenders;
}

// From one processor to the other and back, in nanoseconds. Virtual machines are moved: the same two processors are 60 ns
// apart in one minute and 350 ns in the next, and whatever threads hand each other costs accordingly.
double distanceOfProcessors() {
  if (std::thread::hardware_concurrency() < 2) return 0;
  constexpr int rounds = 50'000;
  std::atomic<int> ball{0};
  std::thread other([&] {
    for (int i = 0; i < rounds; ++i) {
      while (ball.load(std::memory_order_acquire) != 2 * i + 1) {
      }
      ball.store(2 * i + 2, std::memory_order_release);
    }
  });
  const double seconds = secondsOf([&] {
    for (int i = 0; i < rounds; ++i) {
      ball.store(2 * i + 1, std::memory_order_release);
      while (ball.load(std::memory_order_acquire) != 2 * i + 2) {
      }
    }
  });
  other.join();
  return seconds / rounds * 1e9;
}

// Four producers are measured in a short and in a long run. A queue with one lock has two regimes when producers outnumber
// the processors: bursts between two switches, and a switch of threads for each record. Which one a run is in is a matter
// of luck and may change within seconds, so the slowest and the fastest round are shown as well. The short runs have twice
// as many rounds.
void benchThroughput(Report& report, int rounds) {
  struct Work {
    const char* name;
    int producers;
    int recordsOfEach;
  };
  for (const Work& work :
       {Work{"1 producer, 2 million records", 1, 2'000'000}, Work{"4 producers, 250,000 records each", 4, 250'000},
        Work{"4 producers, 1 million records each", 4, 1'000'000}}) {
    const auto contenders = asynchronousContenders();
    const int records = work.producers * work.recordsOfEach;
    const bool isShort = records <= 2'000'000;
    std::vector<double> distances;
    const auto rates = inTurn(contenders, isShort ? 2 * rounds + 1 : rounds, [&](const Contender& one) {
      distances.push_back(distanceOfProcessors());
      // glog needs not do all of it to show its rate.
      return throughputOf(one.make, work.producers, one.name == "glog" ? std::min(records, 250'000) : records);
    });
    addRates(report, work.name, contenders, rates);
    report.add("    from one processor to the other and back", median(distances), "ns");
    report.add("    at most", std::ranges::max(distances), "ns");
  }
}

void benchGrowth(Report& report, int rounds) {
  for (const int producers : {1, 2, 4, 8, 16}) {
    std::vector<double> rates;
    for (int round = 0; round < rounds; ++round)
      rates.push_back(throughputOf([] { return std::make_unique<Ours>(freshFolder("ours")); }, producers, 800'000));
    const double rate = median(rates);
    report.add("growth, " + std::to_string(producers) + " producers: ours", rate / 1e6, "M/s");
  }
}

void benchRollingAndThree(Report& report, int rounds) {
  std::vector<Contender> rolling{
      {"ours", [] { return std::make_unique<Ours>(freshFolder("ours"), false, 1, 1048576, 7); }}};
  std::vector<Contender> three{{"ours", [] { return std::make_unique<Ours>(freshFolder("ours"), false, 3); }}};
#ifdef KELTO_HAS_SPDLOG
  rolling.push_back({"spdlog async", [] { return std::make_unique<Spdlog>(freshFolder("spdlog"), false, 1, 1048576, 7); }});
  three.push_back({"spdlog async", [] { return std::make_unique<Spdlog>(freshFolder("spdlog"), false, 3); }});
#endif
  const auto measure = [](const Contender& one) { return throughputOf(one.make, 1, 500'000); };
  addRates(report, "rolling at 1 MiB, 7 kept", rolling, inTurn(rolling, rounds, measure));
  addRates(report, "three loggers", three, inTurn(three, rounds, measure));
}

void benchSynchronous(Report& report, int rounds) {
  std::vector<Contender> contenders{{"ours", [] { return std::make_unique<Ours>(freshFolder("ours"), true); }},
                                    {"raw write", [] { return std::make_unique<RawWrite>(freshFolder("raw")); }}};
#ifdef KELTO_HAS_SPDLOG
  contenders.push_back({"spdlog flushed", [] { return std::make_unique<Spdlog>(freshFolder("spdlog"), true); }});
#endif
#ifdef KELTO_HAS_GLOG
  contenders.push_back({"glog flushed", [] { return std::make_unique<Glog>(freshFolder("glog"), true); }});
#endif
  benchLatency(report, "synchronous call", contenders, 50'000, std::chrono::nanoseconds(0), rounds);
}

// A call that does nothing: what reading the clock before and after a call costs by itself.
class Floor final : public Peer {
 public:
  void log(int /*number*/) override {}
  void finish() override {}
};

void benchPaced(Report& report, int rounds) {
  auto contenders = asynchronousContenders();
  contenders.push_back({"nothing but the clock", [] { return std::make_unique<Floor>(); }});
  benchLatency(report, "asynchronous call every 10 us", contenders, 50'000, std::chrono::microseconds(10), rounds);
  benchLatency(report, "asynchronous call every 1 ms", contenders, 1'000, std::chrono::milliseconds(1), rounds);
}

// The two halves of a record, each by itself: bursts that no other thread disturbs, since the watch naps longer than they
// last. The caller's half is what a statement costs it; the flush delivers the burst in the same thread.
void benchHalves(Report& report, int rounds) {
  constexpr int records = 400;
  constexpr auto calm = std::chrono::milliseconds(1);
  std::vector<double> taken;
  std::vector<double> delivered;
  Ours ours(freshFolder("ours"));
  for (int burst = 0; burst < rounds * 100; ++burst) {
    for (const auto end = Clock::now() + calm; Clock::now() < end;) {
    }
    taken.push_back(secondsOf([&] {
      for (int i = 0; i < records; ++i) ours.log(i);
    }));
    delivered.push_back(secondsOf([&] { ours.finish(); }));
  }
  report.add("a record, taken in by its caller", median(taken) / records * 1e9, "ns");
  report.add("a record, delivered", median(delivered) / records * 1e9, "ns");
}

// Memory and idle cost are measured in a process of their own.
template <class Work>
double inChild(const Work& work) {
  int pipe[2];
  if (::pipe(pipe) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    const double value = work();
    keep(::write(pipe[1], &value, sizeof value));
    ::_exit(0);
  }
  double value = -1;
  keep(::read(pipe[0], &value, sizeof value));
  ::waitpid(child, nullptr, 0);
  ::close(pipe[0]);
  ::close(pipe[1]);
  return value;
}

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  double total = 0;
  double resident = 0;
  statm >> total >> resident;
  return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

// Four threads that log, or that only make their texts. Prints the bytes in memory at the end.
int showResident(bool logs) {
  {
    std::unique_ptr<Ours> ours;
    if (logs) ours = std::make_unique<Ours>(freshFolder("ours"));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 100'000; ++i) {
          if (ours)
            ours->log(i);
          else
            keep(foundation::formatted("record number %d of %s", i, sample).size());
        }
      });
    for (auto& thread : threads) thread.join();
    if (ours) DDLog::flushLog();
    std::printf("%.0f\n", residentBytes());
  }
  fs::remove_all(folder());
  return 0;
}

// The same program, started afresh.
double residentOf(const std::string& program, const std::string& kind) {
  double bytes = 0;
  FILE* output = ::popen((program + " --resident " + kind).c_str(), "r");
  if (output == nullptr || std::fscanf(output, "%lf", &bytes) != 1) bytes = -1;
  if (output != nullptr) ::pclose(output);
  return bytes;
}

struct Usage {
  double seconds;
  double wakeups;
};

Usage usage() {
  rusage now{};
  ::getrusage(RUSAGE_SELF, &now);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return {seconds(now.ru_utime) + seconds(now.ru_stime), static_cast<double>(now.ru_nvcsw)};
}

void benchMemoryAndIdle(Report& report, const std::string& program) {
  const double memory = residentOf(program, "logging") - residentOf(program, "empty");
  report.add("memory over an empty process, 4 producers", memory / 1e6, "MB", "2 MB", 2e6 / memory);
  const auto idle = [](bool wakeups) {
    return inChild([wakeups] {
      Ours ours(freshFolder("ours"));
      for (int i = 0; i < 1000; ++i) ours.log(i);
      std::this_thread::sleep_for(std::chrono::seconds(2));
      const Usage before = usage();
      std::this_thread::sleep_for(std::chrono::seconds(5));
      const Usage after = usage();
      // One of the sleep itself.
      return (wakeups ? after.wakeups - before.wakeups - 1 : (after.seconds - before.seconds) * 1e6) / 5;
    });
  };
  const double time = idle(false);
  report.add("idle, processor time a second", time, "us", "50 us", 50 / std::max(time, 0.01));
  report.add("idle, wake-ups a second", idle(true), "");
}

// The facade in an ordinary release build of an application: nothing below a warning is logged.
void benchFacade(Report& report) {
  const std::string domain = "com.kelto.bench";
  ::setenv("XDG_CONFIG_HOME", folder().c_str(), 1);
  platform::fake::FakePlatform fake;
  const char* arguments[] = {"bench"};
  platform::Linux::UserDefaults defaults(1, arguments, domain, fake.systemLog);
  platform::Platform real = platform::fake::platformOf(fake, {.defaults = &defaults});
  const platform::Installation installation(real);
  constexpr int calls = 20'000'000;
  std::vector<double> times;
  for (int round = 0; round < 7; ++round)
    times.push_back(secondsOf([] {
      for (int i = 0; i < calls; ++i) KTLogger::sharedLogger()->log_level_message("bench", 7, "number %d of %@", i, sample);
    }));
  const double nanoseconds = median(times) / calls * 1e9;
  report.add("facade call below the threshold", nanoseconds, "ns", "10 ns", 10 / nanoseconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::strcmp(argv[1], "--resident") == 0) return showResident(std::strcmp(argv[2], "logging") == 0);
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 7;
#ifndef KELTO_HAS_SPDLOG
  std::printf("spdlog is missing: no comparison with it\n");
#endif
#ifdef KELTO_HAS_GLOG
  google::InitGoogleLogging(argv[0]);
#else
  std::printf("glog is missing: no comparison with it\n");
#endif
  // A third argument picks one of the works.
  const auto isWanted = [&](std::string_view work) { return argc < 4 || work == argv[3]; };
  Report report;
  if (isWanted("idle")) benchMemoryAndIdle(report, argv[0]);
  if (isWanted("facade")) benchFacade(report);
  if (isWanted("halves")) benchHalves(report, rounds);
  if (isWanted("paced")) benchPaced(report, rounds);
  if (isWanted("synchronous")) benchSynchronous(report, rounds);
  if (isWanted("throughput")) benchThroughput(report, rounds);
  if (isWanted("rolling")) benchRollingAndThree(report, rounds);
  if (isWanted("growth")) benchGrowth(report, std::min(rounds, 3));
  report.print();
  fs::remove_all(folder());
  return argc < 2 || report.write(argv[1]) ? 0 : 1;
}
