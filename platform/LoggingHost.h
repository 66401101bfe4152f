#pragma once
// The needs of logging from the operating system: log files, facts of the process, the terminal and the graded system log.
//
// Any thread, except for a LogFile, which one thread uses at a time. Paths are absolute. Errors are the operating system's
// own numbers; 0 means none.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/runtime/Time.h"
#include "platform/Error.h"
#include "platform/LogTable.h"

namespace platform {

// A log file that is open for writing at its end, and marked as being in use until the object goes.
class LogFile {
 public:
  virtual ~LogFile() = default;

  // Appends and returns how many bytes arrived: all of them, or fewer and then `error` says why.
  virtual std::size_t append(std::string_view bytes, int& error) = 0;
  // The size of the file, other writers' bytes included.
  [[nodiscard]] virtual std::uint64_t size() const = 0;
  // The bytes from `offset` on.
  [[nodiscard]] virtual std::string contentsFrom(std::uint64_t offset) const = 0;
  // Brings what was appended to the medium.
  virtual bool synchronize() = 0;
  // The file is complete: it counts as in use no more.
  virtual void endUse() = 0;

  enum class Place {
    there,     // the path leads to this file
    moved,     // it leads elsewhere or nowhere, but this file still has a name
    unlinked,  // this file has no name any more: what is written to it is lost with it
  };
  [[nodiscard]] virtual Place placeOf(const std::string& path) const = 0;
};

struct LogFileAttributes {
  std::uint64_t size = 0;
  foundation::Date creationDate;
  foundation::Date modificationDate;
};

class LogStorage {
 public:
  virtual ~LogStorage() = default;

  [[nodiscard]] virtual bool fileExists(const std::string& path) const = 0;
  // Makes the folder and those above it; an existing one is success.
  virtual bool createDirectory(const std::string& path, Error& error) = 0;
  // Of all kinds of entry, in no order; empty when the folder cannot be read.
  [[nodiscard]] virtual std::vector<std::string> namesInDirectory(const std::string& path) const = 0;
  [[nodiscard]] virtual std::optional<LogFileAttributes> attributesOfFile(const std::string& path) const = 0;

  // Makes an empty file; false when there is one of that name or it cannot be made.
  virtual bool createFile(const std::string& path) = 0;
  // nullptr when there is no file or it cannot be opened.
  virtual std::unique_ptr<LogFile> openFile(const std::string& path) = 0;
  // Removes a file that no process has open as a LogFile; leaves another alone.
  virtual bool removeFile(const std::string& path) = 0;
  virtual bool moveFile(const std::string& path, const std::string& newPath, Error& error) = 0;

  // Marks of a file: named attributes without a value, which stay with the file through restarts and renaming.
  [[nodiscard]] virtual bool hasMark(const std::string& path, const std::string& name) const = 0;
  virtual int setMark(const std::string& path, const std::string& name) = 0;
  // `wasMissing` becomes true when that is why it failed.
  virtual int removeMark(const std::string& path, const std::string& name, bool& wasMissing) = 0;
};

// The process that logs.
class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;
  [[nodiscard]] virtual std::string processName() const = 0;
  [[nodiscard]] virtual std::int32_t processIdentifier() const = 0;
  // The kernel's number of the calling thread.
  [[nodiscard]] virtual std::uint32_t currentThreadIdentifier() const = 0;
  // 0 when it is not known.
  [[nodiscard]] virtual std::uint32_t processorCount() const = 0;
  // Every other thread of the process passes a full memory fence before this returns. Where that works at all, which never
  // changes, whoever is often in a hurry need not fence against whoever seldom is. False when it could not be done.
  virtual bool fenceOtherThreads() = 0;
};

// The standard error stream.
class Terminal {
 public:
  virtual ~Terminal() = default;
  [[nodiscard]] virtual bool isTerminal() const = 0;
  // Writes all pieces in one piece.
  virtual void write(std::span<const std::string_view> pieces) = 0;
};

// The system's log with its own levels: 2 critical, 3 error, 4 warning, 5 notice.
class LeveledSystemLog {
 public:
  virtual ~LeveledSystemLog() = default;
  // Opens a connection once; a facility that the system does not know counts as that of a user's program.
  virtual void open(std::string_view facility) = 0;
  // `text` is shown as it is.
  virtual void log(int level, std::string_view text) = 0;
};

// A memory that outlives the process: its bytes are there for the next process of the same name when this one dies.
class SurvivingMemory {
 public:
  virtual ~SurvivingMemory() = default;
  [[nodiscard]] virtual std::span<std::byte> bytes() = 0;
  // Lets the memory be forgotten: nothing in it is wanted any more.
  virtual void discard() = 0;
};

class SurvivingMemories {
 public:
  virtual ~SurvivingMemories() = default;
  // New memory, all zero; nullptr where the system has none to give. In a forked child the memory is the child's own, and
  // not surviving.
  virtual std::unique_ptr<SurvivingMemory> make(const std::string& name, std::size_t size) = 0;
  // The memories of that name whose processes died without discarding them. Each is given to one caller only.
  virtual std::vector<std::unique_ptr<SurvivingMemory>> orphans(const std::string& name, std::size_t size) = 0;
};

struct LoggingHost {
  LogStorage& storage;
  ProcessInfo& process;
  Terminal& standardError;
  LeveledSystemLog& leveledSystemLog;
  SurvivingMemories& memories;
  // Makes one entry of the system's journal, whose fields are "NAME=value". A name has upper-case letters, digits and "_",
  // begins with a letter and is at most 64 characters long. False when the entry was not taken. Empty without a journal.
  std::function<bool(std::span<const std::string> fields)> sendToJournal = nullptr;
  // From now on `action` is called once in the thread that crashes by a signal, before the signal does what it would have
  // done. So it takes no lock and no memory. Empty where that is not known.
  std::function<void(void (*action)())> callBeforeCrash = nullptr;
  // A new writer of a table, which connects when it is first used. Empty where no database is known.
  std::function<std::unique_ptr<LogTable>(const LogTableAddress& address)> openLogTable = nullptr;
};

}  // namespace platform
