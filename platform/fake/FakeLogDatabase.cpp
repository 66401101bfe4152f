#include "platform/fake/FakeLogDatabase.h"

#include <algorithm>

namespace platform::fake {

class FakeLogTable final : public LogTable {
 public:
  FakeLogTable(FakeLogDatabase& database, int writer) : _database(database), _writer(writer) {}

  Outcome add(std::span<const LogRow> rows, std::string& cause) override {
    ++_database.attempts;
    if (!isReachable(cause)) return Outcome::failed;
    if (std::ranges::any_of(rows, [](const LogRow& row) { return row.text == FakeLogDatabase::poison; })) {
      cause = "a text that cannot be stored";
      return Outcome::refused;
    }
    const std::lock_guard lock(_database._mutex);
    std::size_t count = 0;
    for (const auto& row : rows) count += store(row) ? 1 : 0;
    _database._batches.push_back(count);
    return _database.losesAnswers ? Outcome::failed : Outcome::stored;
  }

  bool removeBefore(foundation::Date date, std::string& cause) override {
    if (!isReachable(cause)) return false;
    const std::lock_guard lock(_database._mutex);
    std::erase_if(_database._rows, [&](const auto& stored) { return stored.row.time < date; });
    return true;
  }

  void giveUp() override {
    _hasGivenUp = true;
    _hasGivenUp.notify_all();
  }

 private:
  bool isReachable(std::string& cause) {
    if (_database.isSilent) _hasGivenUp.wait(false);
    cause = _hasGivenUp ? "given up" : _database.isUnreachable ? "no answer" : "";
    return cause.empty();
  }

  bool store(const LogRow& row) {
    const auto isSame = [&](const auto& stored) { return stored.writer == _writer && stored.row.number == row.number; };
    if (std::ranges::any_of(_database._rows, isSame)) return false;
    _database._rows.push_back({_writer, row});
    return true;
  }

  FakeLogDatabase& _database;
  const int _writer;
  std::atomic<bool> _hasGivenUp{false};
};

std::unique_ptr<LogTable> FakeLogDatabase::open() { return std::make_unique<FakeLogTable>(*this, ++_writerCount); }

std::vector<LogRow> FakeLogDatabase::rows() const {
  const std::lock_guard lock(_mutex);
  std::vector<LogRow> all;
  for (const auto& stored : _rows) all.push_back(stored.row);
  return all;
}

std::vector<std::string> FakeLogDatabase::texts() const {
  std::vector<std::string> all;
  for (auto& row : rows()) all.push_back(std::move(row.text));
  return all;
}

std::vector<std::size_t> FakeLogDatabase::batches() const {
  const std::lock_guard lock(_mutex);
  return _batches;
}

}  // namespace platform::fake
