#pragma once
// The data that outlives the process: the waiting records, and the lines that a file logger has put aside.
//
// Both lie in a memory that the system keeps when the process dies at any instruction. The next process of the same name
// takes it over and brings what is missing into its own log file. Where the system has no such memory, plain memory serves.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "logging/LogRing.h"
#include "platform/LoggingPlatform.h"

// Lines put aside for one file. Written by one thread at a time in this order: bytes, then `state`. So at every moment
// `state` tells which bytes are whole lines, and which records need no more than these bytes.
struct LogLines {
  static constexpr std::size_t capacity = 65536;
  static constexpr std::size_t longestPath = 1064;

  [[nodiscard]] std::size_t length() const { return state.load(std::memory_order_relaxed) & lengthMask; }
  // The tickets below this one need no recovery from the ring.
  [[nodiscard]] std::uint64_t nextTicket() const { return state.load(std::memory_order_relaxed) >> lengthBits; }
  void setState(std::size_t newLength, std::uint64_t newNextTicket) {
    state.store(newNextTicket << lengthBits | newLength, std::memory_order_release);
  }

  static constexpr int lengthBits = 20;
  static constexpr std::uint64_t lengthMask = (std::uint64_t{1} << lengthBits) - 1;
  std::atomic<std::uint64_t> state;
  std::uint64_t fileSize;  // of the file before the lines; it may have grown since by other processes' lines
  char path[longestPath];  // of the file, ending with a zero; empty when it is not known
  char bytes[capacity];
};

// All that outlives the process. New memory is all zero.
struct LogMemory {
  LogRingMemory ring;
  LogLines lines;
};

// The remains of one process. They stay in its memory until they are on file: who takes them says what is.
struct LogRemains {
  struct Record {
    std::uint64_t ticket;
    DDLogMessage message;
  };
  void didWriteLines() const;
  void didWrite(const Record& record) const;
  // All of it is on file.
  void discard() const { memory->discard(); }

  std::string path;  // of the file that `lines` were for
  std::uint64_t fileSize = 0;
  std::string lines;
  std::vector<Record> records;  // after the lines, in order
  std::shared_ptr<platform::SurvivingMemory> memory;
};

class LogJournal {
 public:
  // `host` may be nullptr.
  explicit LogJournal(platform::LoggingHost* host);
  ~LogJournal() = default;
  LogJournal(const LogJournal&) = delete;
  LogJournal& operator=(const LogJournal&) = delete;

  [[nodiscard]] LogRingMemory& ringMemory() { return _memory->ring; }

  // The record that is being delivered.
  void setTicket(std::uint64_t ticket) { _ticket.store(ticket, std::memory_order_relaxed); }
  [[nodiscard]] std::uint64_t ticket() const { return _ticket.load(std::memory_order_relaxed); }

  // The lines that outlive the process go to the first file logger that asks, and come back with it; nullptr for others.
  LogLines* claimLines();
  void returnLines() { _areLinesClaimed.store(false); }
  // The remains of former processes; the caller brings them to file. Those that are not discarded are there for the next
  // one who asks. Together with `claimLines`.
  std::vector<LogRemains> takeRemains();

  // nullptr when there is none.
  [[nodiscard]] platform::LoggingHost* host() const { return _host; }

  // Every record is delivered: nothing of this is wanted by the next process, unless there are lines that no file has
  // taken.
  void discard();

 private:
  struct Free {
    void operator()(LogMemory* memory) const;
  };
  using Plain = std::unique_ptr<LogMemory, Free>;
  static Plain makePlain();

  const std::string _name;
  platform::LoggingHost* const _host;
  std::unique_ptr<platform::SurvivingMemory> _surviving;
  Plain _plain;
  LogMemory* _memory = nullptr;
  std::atomic<bool> _areLinesClaimed{false};
  std::atomic<std::uint64_t> _ticket{0};
};
