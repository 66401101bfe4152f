#pragma once
// For tests: does a job on a recorded disk, then looks what the next start finds when the power goes after each write.
#include "tests/privileged/tool/FaultCases.h"
#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/RecordedDisk.h"
#include "tests/privileged/tool/ServerRoot.h"

namespace tests::tool {

class PowerCut : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!isThere("/dev/fuse")) GTEST_SKIP() << "no /dev/fuse";
    places = {.here = folder / "disk/h",
              .there = folder / "again/t",
              .isRoot = true,
              .user = {invokingUser, invokingGroup},
              .root = {},
              .units = {}};
    setHome(places.here / "home");
    images = volume("images", "size=1g");
    for (const char* name : {"disk", "again", "etc", "served"}) fs::create_directory(folder / name);
  }

  struct Cuts {
    int writes = 0;
    int cuts = 0;
    int old = 0;
    int done = 0;
    int between = 0;  // both, or later: see the fault matrix
    int gap = 0;
    int torn = 0;
  };
  // Every `every`th write of the job is the last but for what the disk had not flushed.
  Cuts cut(const NamedCase& named, const FileSystemKind& kind, const Fault& machine, std::size_t every = 1) {
    const bool exchange = !machine.withoutRenameFlags;
    Cuts cuts;
    const auto reason = makeDisk(kind);
    if (!reason.empty()) return skip(kind, reason), cuts;
    places.root = named.needsRoot ? folder / "root" : fs::path();
    places.units = isSplit ? folder / "etc/units" : places.here / "units";
    RecordedDisk disk(images / "disk", folder / "served");
    if (!disk.isUsable() || !mountDisk(disk, kind)) return skip(kind, "cannot be mounted over a recorded disk"), cuts;
    const auto job = named.make(places);
    for (const auto& place : {places.here, places.there}) fs::create_directories(place);
    const auto verdict = record(*job, disk, machine);
    unmountDisk();
    cuts.writes = static_cast<int>(verdict);
    using Unflushed = RecordedDisk::Unflushed;
    for (std::size_t events = 0; events <= verdict; events = next(events, every, verdict)) {
      for (const auto unflushed : {Unflushed::none, Unflushed::some, Unflushed::all}) {
        if (disk.cutAfter(events, unflushed)) judge(*job, disk, kind, exchange, events, verdict, cuts);
      }
    }
    const auto name = named.name + (isJustWritten ? " *" : "") + (wasKilled ? " killed" : isSplit ? " /etc" : "");
    std::printf("%-35s %-6s %-9s %6d %5d %5d %5d %7d %5d %5d\n", name.c_str(), kind.name.c_str(), exchange ? "yes" : "no",
                cuts.writes, cuts.cuts, cuts.old, cuts.done, cuts.between, cuts.gap, cuts.torn);
    std::fflush(stdout);
    return cuts;
  }
  // A star: the new item was just written, and not yet on the disk when the job began. /etc and killed: see below.
  static void printHead() {
    std::printf("%-35s %-6s %-9s %6s %5s %5s %5s %7s %5s %5s\n", "job", "fs", "exchange", "writes", "cuts", "old", "new",
                "between", "gap", "torn");
  }

 private:
  // The last one, after the verdict, is always looked at.
  static std::size_t next(std::size_t events, std::size_t every, std::size_t last) {
    return events < last ? std::min(events + every, last) : last + 1;
  }
  static void skip(const FileSystemKind& kind, const std::string& reason) {
    std::printf("skipped %s: %s\n", kind.name.c_str(), reason.c_str());
  }
  // Why there cannot be such a disk; empty when there is. The file system of /etc follows that of the given kind.
  [[nodiscard]] std::string makeDisk(const FileSystemKind& kind) const {
    const auto reason = makeImage(kind, images / "disk");
    if (!reason.empty() || !isSplit) return reason;
    const auto copy = "dd if='" + (images / "etc").string() + "' of='" + (images / "disk").string() +
                      "' bs=1M conv=sparse,notrunc status=none seek=" + std::to_string(kind.bytes >> 20);
    const auto reasonOfEtc = makeImage(kindOfEtc(), images / "etc");
    fs::resize_file(images / "disk", static_cast<std::uintmax_t>(kind.bytes + kindOfEtc().bytes));
    return reasonOfEtc.empty() && std::system(copy.c_str()) != 0 ? "no two file systems in one file" : reasonOfEtc;
  }
  static const FileSystemKind& kindOfEtc() { return fileSystemKinds.front(); }
  bool mountPart(const RecordedDisk& disk, off_t offset, const FileSystemKind& kind, const char* name) const {
    const LoopDevice device(disk.file(), offset, kind.bytes);
    const auto* options = kind.options.c_str();
    return device.isOpen() && ::mount(device.path().c_str(), (folder / name).c_str(), kind.name.c_str(), 0, options) == 0;
  }
  bool mountDisk(const RecordedDisk& disk, const FileSystemKind& kind) {
    if (!mountPart(disk, 0, kind, "disk")) return false;
    // The same disk again: between two mounts nothing can be renamed, so that one power cut hits both.
    EXPECT_EQ(::mount((folder / "disk").c_str(), (folder / "again").c_str(), nullptr, MS_BIND, nullptr), 0);
    if (isSplit && !mountPart(disk, kind.bytes, kindOfEtc(), "etc")) return unmountDisk(), false;
    if (!places.root.empty()) {
      const std::vector<fs::path> seen{folder, folder / "disk", KELTO_BIN_DIR};
      _root.emplace(places.root, places.here / "Library", places.units, folder / "disk/state", seen);
    }
    // The tool's notes lie on the same disk as everything else.
    fs::create_directories(folder / "disk/state/kelto");
    fs::create_directories("/var/lib/kelto");
    EXPECT_EQ(::mount((folder / "disk/state/kelto").c_str(), "/var/lib/kelto", nullptr, MS_BIND, nullptr), 0);
    // And so do the menus.
    fs::create_directories(folder / "disk/share");
    EXPECT_EQ(::mount((folder / "disk/share").c_str(), "/usr/local/share", nullptr, MS_BIND, nullptr), 0);
    return true;
  }
  void unmountDisk() {
    _root.reset();
    ::umount2("/var/lib/kelto", 0);
    ::umount2("/usr/local/share", 0);
    if (isSplit) ::umount2((folder / "etc").c_str(), 0);
    EXPECT_EQ(::umount2((folder / "again").c_str(), 0), 0) << std::strerror(errno);
    EXPECT_EQ(::umount2((folder / "disk").c_str(), 0), 0) << std::strerror(errno);
  }
  // Does the job while the disk records. How many writes and flushes there were until it had ended.
  std::size_t record(FaultCase& job, RecordedDisk& disk, const Fault& machine) {
    const auto startRecord = [&] {
      for (const char* name : {"disk", "etc"}) {
        const int mounted = ::open((folder / name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_EQ(::syncfs(mounted), 0);
        ::close(mounted);
      }
      disk.startRecord();
    };
    if (isJustWritten) places.afterOld = startRecord;
    places.isSourceSafe = !isJustWritten;
    job.prepare();
    places.afterOld = [] {};
    if (wasKilled) killLate(job);
    if (!isJustWritten) startRecord();
    fs::resize_file(result, 0);
    const auto answer = runWithFault(places.tool(), bytesOf(job.job()), environment, machine).answer;
    const auto verdict = disk.recorded();
    disk.stopRecord();
    EXPECT_EQ(answer.status == 0, job.end() == Found::done) << answer.text;
    EXPECT_EQ(job.look(), job.end());
    return verdict;
  }
  // Kills the job a call later each time, until everything is new for the first time: that was not decided on yet.
  // Remains of the other runs are settled, so that each begins in the same way.
  void killLate(const FaultCase& job) {
    fs::resize_file(result, 0);
    std::string text;
    const auto bytes = bytesOf(job.job());
    for (std::size_t at = 1; job.look() != Found::done; ++at) {
      doesNext(job.refused(), text);
      if (runWithFault(places.tool(), bytes, environment, {.at = at}).answer.status != -SIGKILL) break;
    }
    EXPECT_EQ(job.look(), Found::done);
  }
  void judge(const FaultCase& job, const RecordedDisk& disk, const FileSystemKind& kind, bool exchange, std::size_t events,
             std::size_t verdict, Cuts& cuts) {
    ++cuts.cuts;
    if (!mountDisk(disk, kind)) {
      ++cuts.torn;
      ADD_FAILURE() << kind.name << " cannot be mounted after " << events << " of " << verdict;
      return;
    }
    const auto found = job.look();
    if (found == Found::old) ++cuts.old;
    if (found == Found::done) ++cuts.done;
    if (found == Found::both || found == Found::unfinished || found == Found::retimed) ++cuts.between;
    if (found == Found::missing) ++cuts.gap;
    std::string text;
    const bool isTorn = found == Found::bad || (found == Found::missing && exchange) ||
                        (events == verdict && found != job.end()) || !isSettledByNext(job, events == verdict, text);
    if (isTorn) {
      ++cuts.torn;
      if (reportsTorn)
        std::printf("TORN after %zu of %zu on %s: found %d; %s\n", events, verdict, kind.name.c_str(),
                    static_cast<int>(found), text.c_str());
    }
    unmountDisk();
  }
  // Runs the jobs that follow the power cut. False when they leave a wrong state.
  bool isSettledByNext(const FaultCase& job, bool isAfterVerdict, std::string& text) {
    if (const auto refused = job.refused(); !refused.empty()) {
      if (doesNext(refused, text)) return false;
      const auto found = job.look();
      const bool isBeforeVerdict = found == Found::old || found == Found::retimed;
      if (found != job.end() && (isAfterVerdict || !isBeforeVerdict)) return false;
    }
    if (isJustWritten || !job.canBeAskedAgain(job.look())) return true;
    return doesNext(job.job(), text) == (job.end() == Found::done) && job.look() == job.end();
  }
  bool doesNext(const InstructionArchive::Instructions& instructions, std::string& text) {
    fs::resize_file(result, 0);
    const auto answer = runWithFault(places.tool(), bytesOf(instructions), environment, {}).answer;
    text = answer.text;
    return answer.status == 0;
  }

  std::optional<ServerRoot> _root;

 protected:
  Places places;
  fs::path images;
  bool reportsTorn = true;
  // The new item was never synced by whoever made it: a next job may not find it any more.
  bool isJustWritten = false;
  // The server's unit lies on a file system of its own: what brings one of the two to the disk does nothing for the other.
  bool isSplit = false;
  // The same job was killed before, in its last steps: the first thing to do is to undo all of it.
  bool wasKilled = false;
};

}  // namespace tests::tool
