#pragma once
// A database in memory with one table of log records. Any thread.
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/LogTable.h"

namespace platform::fake {

class FakeLogDatabase {
 public:
  // The table must go before the database.
  std::unique_ptr<LogTable> open();

  // In the order in which they were stored.
  [[nodiscard]] std::vector<LogRow> rows() const;
  [[nodiscard]] std::vector<std::string> texts() const;
  // How many rows each successful call has stored.
  [[nodiscard]] std::vector<std::size_t> batches() const;
  [[nodiscard]] int writerCount() const { return _writerCount; }

  // Faults, until they are taken back.
  std::atomic<bool> isUnreachable{false};
  std::atomic<bool> losesAnswers{false};  // it stores, and nobody hears of it
  std::atomic<bool> isSilent{false};      // it never answers; the writer that gives up hears that it failed
  std::atomic<int> attempts{0};

  // A row with this text is refused, and those that come with it.
  static constexpr std::string_view poison = "poison";

 private:
  friend class FakeLogTable;
  struct Stored {
    int writer;
    LogRow row;
  };

  mutable std::mutex _mutex;
  std::vector<Stored> _rows;
  std::vector<std::size_t> _batches;
  std::atomic<int> _writerCount{0};
};

}  // namespace platform::fake
