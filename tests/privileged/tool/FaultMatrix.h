#pragma once
// For tests: runs a job again and again, each time with a fault at the next of its system calls, judges what each run left,
// lets a next job follow, and keeps the table of the results.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/FaultCases.h"
#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/ServerRoot.h"

namespace tests::tool {

struct FaultKind {
  const char* name;
  int error;  // 0 for SIGKILL
};
inline const std::vector<FaultKind> allFaults{{"SIGKILL", 0},   {"ENOSPC", ENOSPC}, {"EIO", EIO},    {"EACCES", EACCES},
                                              {"EXDEV", EXDEV}, {"EROFS", EROFS},   {"EINTR", EINTR}};

struct Results {
  int runs = 0;
  int old = 0;
  int done = 0;
  int both = 0;
  int unfinished = 0;
  int retimed = 0;
  int missing = 0;
  int bad = 0;
  void count(Found found) {
    ++runs;
    if (found == Found::old) ++old;
    if (found == Found::done) ++done;
    if (found == Found::both) ++both;
    if (found == Found::unfinished) ++unfinished;
    if (found == Found::missing) ++missing;
    if (found == Found::retimed) ++retimed;
    if (found == Found::bad) ++bad;
  }
  void add(const Results& other) {
    runs += other.runs;
    old += other.old;
    done += other.done;
    both += other.both;
    unfinished += other.unfinished;
    retimed += other.retimed;
    missing += other.missing;
    bad += other.bad;
  }
  [[nodiscard]] std::vector<std::string> numbers() const {
    std::vector<std::string> texts;
    for (const int number : {runs, old, done, both, unfinished, retimed, missing, bad})
      texts.push_back(std::to_string(number));
    return texts;
  }
};

// The calls at which faults are set: every one, or with KELTO_MATRIX_CALLS=FIRST/STEP a part of them, for a first look at a
// long matrix and for several runs that share it.
struct CountedCalls {
  std::size_t first = 1;
  std::size_t step = 1;
};
inline CountedCalls countedCalls(int every) {
  CountedCalls calls;
  const char* part = std::getenv("KELTO_MATRIX_CALLS");
  if (part != nullptr &&
      (std::sscanf(part, "%zu/%zu", &calls.first, &calls.step) != 2 || calls.first < 1 || calls.step < 1))
    throw std::invalid_argument(std::string("KELTO_MATRIX_CALLS is not FIRST/STEP: ") + part);
  calls.step *= static_cast<std::size_t>(every);
  return calls;
}

class ResultTable {
 public:
  Results& row(const std::string& command, const std::string& fileSystem, bool exchange, const std::string& fault) {
    const auto key = command + "|" + fileSystem + "|" + (exchange ? "yes" : "no") + "|" + fault;
    if (!_rows.contains(key)) _order.push_back(key);
    return _rows[key];
  }
  void print() const {
    printRow({protocol::commandKey, "fs", "exchange", "fault"},
             {"runs", "old", "new", "both", "later", "time", "gap", "bad"});
    Results sum;
    for (const auto& key : _order) {
      std::istringstream text(key);
      std::vector<std::string> fields;
      for (std::string field; std::getline(text, field, '|');) fields.push_back(field);
      const auto& row = _rows.at(key);
      printRow(fields, row.numbers());
      sum.add(row);
    }
    printRow({"all", "", "", ""}, sum.numbers());
    std::printf(
        "both:  complete at source and destination\n"
        "later: complete, the next job does the last step: owners of a trashed item, the server's other files\n"
        "time:  complete, but the topmost folder has the time of the exchange, which the tool had no time to give back\n"
        "gap:   a folder killed between two renames where no exchange is known: nothing at the destination until the next\n"
        "       job puts the old one back\n");
    std::fflush(stdout);
  }

 private:
  static void printRow(const std::vector<std::string>& fields, const std::vector<std::string>& numbers) {
    std::printf("%-27s %-6s %-9s %-8s", fields[0].c_str(), fields[1].c_str(), fields[2].c_str(), fields[3].c_str());
    for (const auto& number : numbers) std::printf(" %6s", number.c_str());
    std::printf("\n");
  }
  std::vector<std::string> _order;
  std::map<std::string, Results> _rows;
};

// As root in a mount name space of its own, with an account for the user who asks; else in the temporary folder.
class FaultMatrix : public NamespaceTest {
 protected:
  void SetUp() override {
    if (!isTracingPossible()) GTEST_SKIP() << "faults are injected on x86-64 only";
    isRoot = ::geteuid() == 0;
    if (!isRoot) return;
    NamespaceTest::SetUp();
  }
  void TearDown() override {
    table.print();
    if (isRoot) NamespaceTest::TearDown();
  }

  // Every fault of `faults` at every `every`th call of every case, `here` being on the file system called `name`.
  void runAll(const std::string& name, const fs::path& here, const fs::path& there, const std::vector<FaultKind>& faults,
              bool exchange, bool alsoLooks, int every = 1, const std::vector<NamedCase>& cases = faultCases()) {
    Places places{.here = here / "h",
                  .there = there / "t",
                  .isRoot = isRoot,
                  .user = {invokingUser, invokingGroup},
                  .root = {},
                  .units = here / "h/units"};
    if (!isRoot) places.user = {::geteuid(), ::getegid()};
    beAtHomeIn(places);
    for (const auto& named : cases) {
      if ((named.needsRoot || named.needsVolume) && !isRoot) continue;
      std::optional<ServerRoot> root;
      places.root = named.needsRoot ? folder / ("root-" + name) : fs::path();
      if (named.needsRoot)
        root.emplace(places.root, places.here / "Library", places.units, folder / ("state-" + name),
                     std::vector<fs::path>{folder, here, KELTO_BIN_DIR});
      for (const auto& fault : faults) {
        auto& row = table.row(named.name, name, exchange, fault.name);
        run(named, places, {.error = fault.error, .withoutRenameFlags = !exchange}, row, every);
        // A call that only looks can go wrong in one way as well as in another.
        if (alsoLooks && fault.error == EIO)
          run(named, places, {.error = fault.error, .countsLooks = true, .withoutRenameFlags = !exchange}, row, every);
        EXPECT_EQ(row.bad, 0) << named.name << " " << fault.name << " on " << name;
      }
    }
  }

  bool isRoot = false;
  ResultTable table;

 private:
  void beAtHomeIn(const Places& places) {
    const auto home = places.here / "home";
    if (!isRoot) {
      std::erase_if(environment, [](const auto& text) { return text.starts_with("XDG_DATA_HOME="); });
      environment.push_back("XDG_DATA_HOME=" + (home / ".local/share").string());
      return;
    }
    setHome(home);
  }
  static void clean(const Places& places) {
    for (const auto& folder : {places.here, places.there}) {
      fs::create_directories(folder);
      for (const auto& entry : fs::directory_iterator(folder)) {
        // The two are mounted elsewhere as well: only what they hold goes.
        const bool isMounted = entry.path().filename() == "Library" || entry.path().filename() == "units";
        if (!isMounted) fs::remove_all(entry.path());
        if (isMounted)
          for (const auto& inner : fs::directory_iterator(entry.path())) fs::remove_all(inner.path());
      }
    }
  }
  static bool isStagingLeft(const Places& places) {
    for (const auto& folder : {places.here, places.there}) {
      for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with(".kelto-staging-")) return true;
      }
    }
    return false;
  }
  void run(const NamedCase& named, const Places& places, Fault fault, Results& row, int every) {
    const auto calls = countedCalls(every);
    for (std::size_t at = calls.first;; at += calls.step) {
      fault.at = at;
      clean(places);
      const auto job = named.make(places);
      job->prepare();
      fs::resize_file(result, 0);
      const auto traced = runWithFault(places.tool(), bytesOf(job->job()), environment, fault);
      if (traced.calls < at) {
        if (traced.calls == 0) ADD_FAILURE() << named.name << ": no call was counted: " << traced.answer.text;
        return;
      }
      const std::string reason = judge(*job, places, traced, fault, row);
      if (reason.empty()) continue;
      ++row.bad;
      std::printf("BAD %s, call %zu%s (%ld), error %d%s: %s; %s\n", named.name.c_str(), at,
                  fault.countsLooks ? " that looks" : "", traced.hit, fault.error,
                  fault.withoutRenameFlags ? " without exchange" : "", reason.c_str(), traced.answer.text.c_str());
    }
  }
  static bool isTimeSetting(long call) {
    return call == SYS_utimensat || call == SYS_openat2 || call == SYS_fstat || call == SYS_newfstatat;
  }
  // Describes the defect of the run; empty when it was correct.
  std::string judge(FaultCase& job, const Places& places, const Traced& traced, const Fault& fault, Results& row) {
    const bool isOk = read(result) == protocol::successVerdict;
    job.hear(traced.answer.text);
    const Found found = job.look();
    if (found != Found::bad) row.count(found);
    if (found == Found::bad) return ++row.runs, "neither old nor new";
    const bool isDone = job.isEnough(found) || (found == Found::retimed && isTimeSetting(traced.hit));
    if (isOk && !isDone) return "the verdict is ok without the whole new item";
    if (fault.error == 0 && traced.answer.status != -SIGKILL) return "not killed";
    if (fault.error != 0 && traced.answer.status < 0) return "ended by a signal";
    if (fault.error != 0 && isOk != (traced.answer.status == 0)) return "verdict and exit status differ";
    if (fault.error != 0 && found == Found::retimed && !isTimeSetting(traced.hit)) return "a time was not given back";
    if (fault.error != 0 && found == Found::missing) return "nothing at the destination without a kill";
    if (found == Found::missing && !fault.withoutRenameFlags)
      return "nothing at the destination although there is an exchange";
    const auto next = job.next(found);
    fs::resize_file(result, 0);
    const auto answer = runWithFault(places.tool(), bytesOf(next), environment, {}).answer;
    job.hear(answer.text);
    if (answer.status != 0 || read(result) != protocol::successVerdict) return "the next job failed: " + answer.text;
    if (!job.isSettled()) return "the next job did not do it all";
    return isStagingLeft(places) ? "staging is left after the next job" : "";
  }
};

}  // namespace tests::tool
