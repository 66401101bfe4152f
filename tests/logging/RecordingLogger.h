#pragma once
// A logger that keeps what it is given, and can be held up.
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "logging/DDAbstractLogger.h"
#include "logging/DDLog.h"

namespace tests {

class RecordingLogger : public DDAbstractLogger {
 public:
  explicit RecordingLogger(std::string name = "recording") : DDAbstractLogger(std::move(name)) {}

  void logMessage(const DDLogMessage& message) override {
    if (onMessage) onMessage(message);
    const std::lock_guard lock(_mutex);
    _records.push_back(message);
    _changed.notify_all();
  }
  void didAddLogger() override { note("added"); }
  void willRemoveLogger() override { note("removed"); }
  void flush() override { note("flushed"); }

  [[nodiscard]] std::vector<std::string> texts() const {
    const std::lock_guard lock(_mutex);
    std::vector<std::string> all;
    for (const auto& record : _records) all.emplace_back(record.logMsg());
    return all;
  }
  [[nodiscard]] std::vector<DDLogMessage> records() const {
    const std::lock_guard lock(_mutex);
    return _records;
  }
  [[nodiscard]] std::size_t count() const {
    const std::lock_guard lock(_mutex);
    return _records.size();
  }
  [[nodiscard]] std::vector<std::string> notes() const {
    const std::lock_guard lock(_mutex);
    return _notes;
  }
  bool waitForCount(std::size_t count) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, std::chrono::seconds(20), [&] { return _records.size() >= count; });
  }

  std::function<void(const DDLogMessage&)> onMessage;  // set before the logger is added

 private:
  void note(std::string text) {
    const std::lock_guard lock(_mutex);
    _notes.push_back(std::move(text));
  }

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<DDLogMessage> _records;
  std::vector<std::string> _notes;
};

// Keeps threads waiting until it is opened.
class Gate {
 public:
  void open() {
    const std::lock_guard lock(_mutex);
    _isOpen = true;
    _changed.notify_all();
  }
  void pass() {
    std::unique_lock lock(_mutex);
    ++_arrivals;
    _changed.notify_all();
    _changed.wait_for(lock, std::chrono::seconds(60), [this] { return _isOpen; });
  }
  bool waitForArrival() {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, std::chrono::seconds(20), [this] { return _arrivals > 0; });
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _isOpen = false;
  int _arrivals = 0;
};

// Gives a record to two loggers, which are added here, and sees to it that the second gets it only when the first, held up
// meanwhile, is through. `log` logs one record, asynchronously.
inline void expectOneAfterTheOther(const std::function<void()>& log) {
  Gate gate;
  const auto first = std::make_shared<RecordingLogger>("first");
  first->onMessage = [&](const DDLogMessage&) { gate.pass(); };
  const auto second = std::make_shared<RecordingLogger>("second");
  DDLog::addLogger(first);
  DDLog::addLogger(second);
  log();
  ASSERT_TRUE(gate.waitForArrival());
  for (int i = 0; i < 20; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_EQ(second->count(), 0);
  }
  gate.open();
  DDLog::flushLog();
  EXPECT_EQ(second->count(), 1);
}

}  // namespace tests
