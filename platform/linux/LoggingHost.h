#pragma once
// The Linux side of logging, in one object. Any thread.
#include "platform/LoggingHost.h"
#include "platform/linux/CrashSignals.h"
#include "platform/linux/LogStorage.h"
#include "platform/linux/LogTable.h"
#include "platform/linux/SurvivingMemories.h"
#include "platform/linux/SystemJournal.h"

namespace platform::Linux {

class ProcessInfo final : public platform::ProcessInfo {
 public:
  [[nodiscard]] std::string processName() const override;
  [[nodiscard]] std::int32_t processIdentifier() const override;
  [[nodiscard]] std::uint32_t currentThreadIdentifier() const override;
  [[nodiscard]] std::uint32_t processorCount() const override;
  bool fenceOtherThreads() override;
};

class Terminal final : public platform::Terminal {
 public:
  // `descriptor` is not owned.
  explicit Terminal(int descriptor) : _descriptor(descriptor) {}
  [[nodiscard]] bool isTerminal() const override;
  void write(std::span<const std::string_view> pieces) override;

 private:
  const int _descriptor;
};

// The syslog interface, whose levels have the same numbers. Every facility is that of a user's program.
class LeveledSystemLog final : public platform::LeveledSystemLog {
 public:
  void open(std::string_view facility) override;
  void log(int level, std::string_view text) override;
};

class LoggingHost final {
 public:
  // Makes forks known to the platform (foundation/dispatch/Fork.h) and starts its threads in the system's way
  // (foundation/dispatch/Threads.h). The library that holds this code stays loaded from then on.
  LoggingHost();

  LogStorage storage;
  ProcessInfo process;
  Terminal standardError;
  LeveledSystemLog leveledSystemLog;
  SurvivingMemories memories;
  platform::LoggingHost host{storage,  process,       standardError,   leveledSystemLog,
                             memories, sendToJournal, callBeforeCrash, LogTable::open};
};

}  // namespace platform::Linux
