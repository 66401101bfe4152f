// Replacement of a 300 MB bundle of 3,000 files by the assistant tool: on one file system, and across two against
// `cp -a` plus sync. Usage: bench_tool_replace JSON [FOLDER], where FOLDER is on the disk to be measured.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "privileged/tool/Folder.h"
#include "privileged/tool/Staging.h"
#include "privileged/tool/Swap.h"
#include "privileged/tool/Tree.h"
#include "protocol/InstructionArchive.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/StateNamespace.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int folderCount = 30;
constexpr int filesPerFolder = 100;
constexpr std::size_t bytesPerFile = 100000;
constexpr int roundCount = 7;
constexpr int swapCount = 300;

double milliseconds(Clock::duration duration) { return std::chrono::duration<double, std::milli>(duration).count(); }

double quantile(std::vector<double> values, double part) {
  std::ranges::sort(values);
  return values[std::min(values.size() - 1, static_cast<std::size_t>(part * static_cast<double>(values.size())))];
}
double median(const std::vector<double>& values) { return quantile(values, 0.5); }

void shell(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    std::cerr << "failed: " << command << '\n';
    std::exit(1);
  }
}

void makeBundle(const fs::path& app) {
  std::string bytes(bytesPerFile, '\0');
  std::uint32_t random = 1;
  for (int i = 0; i < folderCount; ++i) {
    const auto folder = app / "Contents" / std::to_string(i);
    fs::create_directories(folder);
    for (int j = 0; j < filesPerFolder; ++j) {
      for (std::size_t at = 0; at < bytes.size(); at += 512)
        bytes[at] = static_cast<char>((random = random * 1664525U + 1013904223U) >> 24U);
      std::ofstream(folder / std::to_string(j), std::ios::binary) << bytes;
    }
  }
}

struct Run {
  double toVerdict = 0;
  double toAnswer = 0;
  double toExit = 0;
  double residentMegabytes = 0;
};

// Runs one job as the installer does, and looks for the verdict as fast as it can.
Run replaceByTool(const fs::path& destination, const fs::path& source, const fs::path& result) {
  std::ofstream(result).close();
  const auto archive = InstructionArchive::archivedData({{protocol::commandKey, protocol::replaceItemCommand},
                                                         {protocol::sourcePathKey, source},
                                                         {protocol::destinationPathKey, destination},
                                                         {protocol::resultPathKey, result}});
  const std::uint64_t length = archive.size();
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::exit(1);
  const auto start = Clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDIN_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    ::execl(KELTO_BIN_DIR "/assistantTool", "assistantTool", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  if (::write(ends[0], &length, sizeof length) < 0 || ::write(ends[0], archive.data(), archive.size()) < 0) std::exit(1);
  Run run;
  struct stat status {};
  while (::stat(result.c_str(), &status) == 0 && status.st_size == 0 &&
         ::recv(ends[0], &status, 1, MSG_DONTWAIT | MSG_PEEK) < 0) {
    ::usleep(100);
  }
  run.toVerdict = milliseconds(Clock::now() - start);
  char text[512];
  const ssize_t got = ::read(ends[0], text, sizeof text);  // a short read ends the answer
  run.toAnswer = milliseconds(Clock::now() - start);
  ::close(ends[0]);
  int ended = 0;
  rusage usage{};
  ::wait4(child, &ended, 0, &usage);
  run.toExit = milliseconds(Clock::now() - start);
  run.residentMegabytes = static_cast<double>(usage.ru_maxrss) / 1024;
  if (ended != 0) {
    std::cerr << std::string(text, got > 0 ? static_cast<std::size_t>(got) : 0);
    std::exit(1);
  }
  return run;
}

double removeByPeer(const fs::path& app) {
  ::sync();
  const auto start = Clock::now();
  shell("rm -rf '" + app.string() + "'");
  return milliseconds(Clock::now() - start);
}

double copyByPeer(const fs::path& destination, const fs::path& source) {
  fs::remove_all(destination);
  ::sync();
  const auto start = Clock::now();
  shell("cp -a '" + source.string() + "' '" + destination.string() + "' && sync -f '" + destination.string() + "'");
  return milliseconds(Clock::now() - start);
}

struct SwapTimes {
  std::vector<double> swaps;
  std::vector<double> renames;
};

// The floor for such a job on this disk: one rename of an empty file, synced.
double renameByPeer(const AssistantTool::Location& beside, int round) {
  const auto folder = beside.openFolder();
  const auto name = [](int number) { return "peer" + std::to_string(number); };
  const auto start = Clock::now();
  if (::renameat(folder.get(), name(round).c_str(), folder.get(), name(round + 1).c_str()) != 0) std::exit(1);
  AssistantTool::syncFolder(folder.get());
  return milliseconds(Clock::now() - start);
}

// The swap with its sync alone, after the slow work of the same job.
SwapTimes timeSwaps(const AssistantTool::Location& source, const AssistantTool::Location& destination) {
  SwapTimes times;
  std::ofstream(destination.folderPath() + "/peer0").close();
  for (int i = 0; i < swapCount; ++i) {
    AssistantTool::Staging staging(destination);
    AssistantTool::renameWithoutReplacing(source.folder.get(), source.name, staging.folder(),
                                          AssistantTool::Staging::newItem);
    AssistantTool::syncTree(staging.folder(), AssistantTool::Staging::newItem, std::size_t{folderCount} * filesPerFolder);
    AssistantTool::Swap swap(staging, destination, destination.status());
    const auto start = Clock::now();
    swap.in();
    times.swaps.push_back(milliseconds(Clock::now() - start));
    AssistantTool::renameWithoutReplacing(staging.folder(), AssistantTool::Staging::newItem, source.folder.get(),
                                          source.name);
    times.renames.push_back(renameByPeer(destination, i));
  }
  return times;
}

class Report {
 public:
  explicit Report(const char* path) : _json(path) { _json << "["; }
  ~Report() { _json << "\n]\n"; }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;
  // `ratio` is the value by what it is held against.
  void add(const char* figure, double value, const char* unit, const char* against, double other) {
    std::printf("%-52s %9.2f %-3s  against %-28s %9.2f  ratio %.2f\n", figure, value, unit, against, other, value / other);
    _json << (_first ? "\n" : ",\n") << R"(  {"figure": ")" << figure << R"(", "value": )" << value << R"(, "unit": ")"
          << unit << R"(", "against": ")" << against << R"(", "ratio": )" << value / other << "}";
    _first = false;
  }

 private:
  std::ofstream _json;
  bool _first = true;
};

void onOneFileSystem(const fs::path& folder, Report& report) {
  std::vector<double> verdicts;
  std::vector<double> answers;
  std::vector<double> exits;
  std::vector<double> peer;
  std::vector<double> resident;
  makeBundle(folder / "App.app");
  for (int round = 0; round < roundCount; ++round) {
    makeBundle(folder / "New.app");
    peer.push_back(removeByPeer(folder / "New.app"));
    makeBundle(folder / "New.app");
    ::sync();
    const auto run = replaceByTool(folder / "App.app", folder / "New.app", folder / "result");
    verdicts.push_back(run.toVerdict);
    answers.push_back(run.toAnswer);
    exits.push_back(run.toExit);
    resident.push_back(run.residentMegabytes);
  }
  report.add("one file system: tool start to verdict, median", median(verdicts), "ms", "the limit", 30);
  report.add("one file system: tool start to answer, median", median(answers), "ms", "the whole update's limit", 300);
  report.add("one file system: tool start to exit, median", median(exits), "ms", "rm -rf of the old bundle", median(peer));
  report.add("one file system: tool resident, largest", quantile(resident, 1), "MB", "the limit", 8);
  makeBundle(folder / "New.app");
  ::sync();
  const AssistantTool::PathWalk walk(::getuid());
  const auto times = timeSwaps(walk.locate((folder / "New.app").string()), walk.locate((folder / "App.app").string()));
  report.add("one file system: swap plus sync, median", median(times.swaps), "ms", "one rename plus sync",
             median(times.renames));
  report.add("one file system: swap plus sync, 99th percentile", quantile(times.swaps, 0.99), "ms", "one rename plus sync",
             quantile(times.renames, 0.99));
  report.add("one file system: swap plus sync, 99th percentile", quantile(times.swaps, 0.99), "ms", "the limit", 5);
}

void acrossFileSystems(const fs::path& disk, const fs::path& memory, Report& report) {
  std::vector<double> verdicts;
  std::vector<double> answers;
  std::vector<double> exits;
  std::vector<double> peer;
  std::vector<double> resident;
  for (int round = 0; round < roundCount; ++round) {
    makeBundle(memory / "New.app");
    peer.push_back(copyByPeer(disk / "Copy.app", memory / "New.app"));
    ::sync();
    const auto run = replaceByTool(disk / "App.app", memory / "New.app", disk / "result");
    verdicts.push_back(run.toVerdict);
    answers.push_back(run.toAnswer);
    exits.push_back(run.toExit);
    resident.push_back(run.residentMegabytes);
  }
  report.add("two file systems: tool start to verdict, median", median(verdicts), "ms", "cp -a plus sync", median(peer));
  report.add("two file systems: tool start to answer, median", median(answers), "ms", "cp -a plus sync", median(peer));
  report.add("two file systems: tool start to exit, median", median(exits), "ms", "cp -a plus sync", median(peer));
  report.add("two file systems: tool resident, largest", quantile(resident, 1), "MB", "the limit", 8);
}

fs::path ownFolder(const fs::path& parent) {
  std::string pattern = (fs::canonical(parent) / "bench-tool-XXXXXX").string();
  return ::mkdtemp(pattern.data()) == nullptr ? fs::path() : fs::path(pattern);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return 2;
  if (::geteuid() == 0 && !tests::makeStatePrivate()) {
    std::puts("root's tool would change /var/lib, and no name space can be made");
    return 1;
  }
  const auto disk = ownFolder(count > 2 ? fs::path(arguments[2]) : fs::temp_directory_path());
  const auto memory = ownFolder("/dev/shm");
  {
    Report report(arguments[1]);
    onOneFileSystem(disk, report);
    if (memory.empty()) {
      std::puts("no /dev/shm: nothing measured across file systems");
    } else {
      acrossFileSystems(disk, memory, report);
    }
  }
  fs::remove_all(disk);
  if (!memory.empty()) fs::remove_all(memory);
}
