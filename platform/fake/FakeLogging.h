#pragma once
// The parts of the fake platform that logging uses. Unlike the rest these may be used from any thread: loggers do.
#include <atomic>
#include <map>
#include <mutex>

#include "foundation/dispatch/Clock.h"
#include "platform/LoggingHost.h"
#include "platform/fake/FakeLogDatabase.h"

namespace platform::fake {

// Stands still until it is told to go on. The clock of the process for as long as it lives.
class FakeClock final : public foundation::Clock {
 public:
  FakeClock() { replaceCurrent(this); }
  ~FakeClock() override { replaceCurrent(nullptr); }
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  [[nodiscard]] foundation::Date now() const override;
  [[nodiscard]] foundation::Uptime uptime() const override;
  CallID callAt(foundation::Uptime when, std::function<void()> action) override;
  void cancel(CallID call) override;

  // From now on the process has the operating system's clock.
  void stepAside() { replaceCurrent(nullptr); }
  // Lets time pass, making the calls that fall due on this thread, each at its own time.
  void advance(foundation::Seconds duration);
  // As if the user set the clock; nothing falls due by it.
  void setBack(foundation::Seconds duration) { advanceWallClock(-duration); }
  void advanceWallClock(foundation::Seconds duration);
  [[nodiscard]] std::size_t pendingCount() const;
  // How long until the next call; nothing when there is none.
  [[nodiscard]] std::optional<foundation::Seconds> nextCall() const;

  // The number of calls that are not taken next, for want of memory.
  std::atomic<int> callsWithoutMemory{0};

 private:
  mutable std::mutex _mutex;
  foundation::Date _now{std::chrono::seconds(1'700'000'000)};
  foundation::Uptime _uptime{std::chrono::hours(1)};
  CallID _last = 0;
  std::map<std::pair<foundation::Uptime, CallID>, std::function<void()>> _calls;
};

// Files in memory, born at the time of the clock. A file needs a folder above it, which is there once it was made.
class FakeLogStorage final : public LogStorage {
 public:
  struct Item {
    std::string contents;
    foundation::Date creationDate;
    foundation::Date modificationDate;
    std::vector<std::string> marks;
    int openCount = 0;
    int useCount = 0;
    int synchronizeCount = 0;
    bool isLinked = true;
  };

  [[nodiscard]] bool fileExists(const std::string& path) const override;
  bool createDirectory(const std::string& path, Error& error) override;
  [[nodiscard]] std::vector<std::string> namesInDirectory(const std::string& path) const override;
  [[nodiscard]] std::optional<LogFileAttributes> attributesOfFile(const std::string& path) const override;
  bool createFile(const std::string& path) override;
  std::unique_ptr<LogFile> openFile(const std::string& path) override;
  bool removeFile(const std::string& path) override;
  bool moveFile(const std::string& path, const std::string& newPath, Error& error) override;
  [[nodiscard]] bool hasMark(const std::string& path, const std::string& name) const override;
  int setMark(const std::string& path, const std::string& name) override;
  int removeMark(const std::string& path, const std::string& name, bool& wasMissing) override;

  void addFile(const std::string& path, std::string contents = {},
               std::optional<foundation::Date> creationDate = std::nullopt);
  [[nodiscard]] std::optional<std::string> contents(const std::string& path) const;
  [[nodiscard]] std::vector<std::string> paths() const;
  // How often the file, be it unlinked by now, was brought to the medium.
  [[nodiscard]] int synchronizeCount(const std::string& path) const;
  // "synchronised PATH" and "marked PATH", in order.
  [[nodiscard]] std::vector<std::string> events() const;
  // As another program would, whoever has it open.
  void unlink(const std::string& path);

  // Faults, for the next calls.
  std::atomic<int> createDirectoryError{0};
  std::atomic<int> moveError{0};
  std::atomic<int> markError{0};
  std::atomic<bool> refusesToOpen{false};
  std::atomic<bool> refusesToRemove{false};
  std::atomic<std::size_t> room{SIZE_MAX};  // bytes that still fit

 private:
  friend class FakeLogFile;
  mutable std::mutex _mutex;
  std::map<std::string, bool> _folders;
  std::map<std::string, std::shared_ptr<Item>> _files;
  std::map<std::string, std::shared_ptr<Item>> _unlinked;
  std::vector<std::string> _events;
};

class FakeProcessInfo final : public ProcessInfo {
 public:
  [[nodiscard]] std::string processName() const override { return name; }
  [[nodiscard]] std::int32_t processIdentifier() const override { return identifier; }
  [[nodiscard]] std::uint32_t currentThreadIdentifier() const override;
  [[nodiscard]] std::uint32_t processorCount() const override { return processors; }
  bool fenceOtherThreads() override { return false; }

  // Set before anything is logged.
  std::string name = "Installer";
  std::int32_t identifier = 4711;
  std::uint32_t processors = 2;
};

class FakeTerminal final : public Terminal {
 public:
  [[nodiscard]] bool isTerminal() const override { return isOne; }
  void write(std::span<const std::string_view> pieces) override;

  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::vector<std::vector<std::string>> writes() const;
  bool isOne = false;

 private:
  mutable std::mutex _mutex;
  std::vector<std::vector<std::string>> _writes;
};

class FakeLeveledSystemLog final : public LeveledSystemLog {
 public:
  void open(std::string_view facility) override;
  void log(int level, std::string_view text) override;

  [[nodiscard]] std::vector<std::string> facilities() const;
  [[nodiscard]] std::vector<std::pair<int, std::string>> lines() const;

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _facilities;
  std::vector<std::pair<int, std::string>> _lines;
};

class FakeSurvivingMemories final : public SurvivingMemories {
 public:
  std::unique_ptr<SurvivingMemory> make(const std::string& name, std::size_t size) override;
  std::vector<std::unique_ptr<SurvivingMemory>> orphans(const std::string& name, std::size_t size) override;

  // The processes that made memories so far die: what they did not discard is there for the next one to find.
  void die();

  // Without a name it is of every name.
  struct Dead {
    Dead(std::vector<std::byte> memory, std::string owner = {}) : bytes(std::move(memory)), name(std::move(owner)) {}
    std::vector<std::byte> bytes;
    std::string name;
  };
  std::vector<Dead> dead;
  bool hasNone = true;

 private:
  std::vector<std::pair<std::string, std::shared_ptr<std::vector<std::byte>>>> _living;
};

class FakeSystemJournal {
 public:
  bool send(std::span<const std::string> fields);

  [[nodiscard]] std::vector<std::vector<std::string>> entries() const;
  std::atomic<bool> isMissing = false;

 private:
  mutable std::mutex _mutex;
  std::vector<std::vector<std::string>> _entries;
};

struct FakeLoggingHost {
  FakeLogStorage storage;
  FakeProcessInfo process;
  FakeTerminal standardError;
  FakeLeveledSystemLog leveledSystemLog;
  FakeSurvivingMemories memories;
  FakeSystemJournal journal;
  FakeLogDatabase database;
  LoggingHost host{storage,       process,
                   standardError, leveledSystemLog,
                   memories,      [this](std::span<const std::string> fields) { return journal.send(fields); },
                   nullptr,       [this](const LogTableAddress&) { return database.open(); }};
};

}  // namespace platform::fake
