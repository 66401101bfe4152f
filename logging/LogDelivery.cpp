#include "logging/LogDelivery.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "foundation/dispatch/Threads.h"

using foundation::Dispatch::SerialQueue;

namespace {

// A delivery that stands where it stood this long ago is stuck.
constexpr std::chrono::milliseconds look{1};

}  // namespace

LogDelivery::LogDelivery(platform::ProcessInfo* process, platform::SystemLog& systemLog)
    : _processors(std::max(1U, process != nullptr ? process->processorCount() : std::thread::hardware_concurrency())),
      _systemLog(systemLog),
      _bell(process) {}

LogDelivery::~LogDelivery() {
  stop();
  // Loggers end with what they have put aside, which is the parent's.
  if (_isStray) new (std::nothrow) std::vector(std::move(_nodes));
}

void LogDelivery::report(const char* reason) noexcept {
  if (_hasReported.exchange(true)) return;
  try {
    _systemLog.log(std::string("DDLog: a logger or a formatter has thrown an exception: ") + reason);
  } catch (...) {
    // Without memory there is nothing to say it with.
  }
}

void LogDelivery::perform(DDLogger& logger, const DDLogMessage& message, bool andWrite) {
  attempt([&] { logger.logMessage(message); });
  if (andWrite) attempt([&] { logger.writePending(); });
}

void LogDelivery::add(std::shared_ptr<DDLogger> logger) {
  auto queue = logger->loggerQueue();
  if (!queue) queue = SerialQueue::make(logger->loggerName());
  queue->async([this, logger] { attempt([&] { logger->didAddLogger(); }); });
  _nodes.push_back({.logger = std::move(logger), .loggerQueue = std::move(queue)});
  _held.reserve(_nodes.size());
}

void LogDelivery::remove(const std::shared_ptr<DDLogger>& logger) {
  const auto node = std::ranges::find(_nodes, logger, &DDLoggerNode::logger);
  if (node == _nodes.end()) return;
  DDLoggerNode removed = std::move(*node);
  _nodes.erase(node);
  dismiss(std::move(removed));
}

void LogDelivery::removeAll() {
  for (auto& node : std::exchange(_nodes, {})) dismiss(std::move(node));
}

void LogDelivery::dismiss(DDLoggerNode node) {
  {
    const SerialQueue::Turn turn(*node.loggerQueue);
    attempt([&] { node.logger->writePending(); });
  }
  node.loggerQueue->async(_leaving, [this, logger = std::move(node.logger)]() mutable {
    attempt([&] { logger->willRemoveLogger(); });
    // The last owner's logger ends here, as long as it is waited for.
    logger.reset();
  });
}

void LogDelivery::Round::deliver(const DDLogMessage& message, bool andWrite) {
  const std::size_t count = _delivery._nodes.size();
  if (count == 1)
    _delivery.perform(only(), message, andWrite);
  else if (count > indexMask || _delivery._processors < 2)
    _delivery.deliverInTurn(message, andWrite);
  else if (count > 1)
    _delivery.deliverWatched(message, andWrite);
}

void LogDelivery::Round::writePending() {
  if (_delivery._nodes.size() == 1) {
    _delivery.attempt([&] { only().writePending(); });
    return;
  }
  _delivery.performOnQueues([](DDLogger& logger) { logger.writePending(); });
}

// The only logger, on its queue.
DDLogger& LogDelivery::Round::only() {
  const DDLoggerNode& node = _delivery._nodes.front();
  if (_turn && _turn->isAwaited()) _turn.reset();
  if (!_turn) _turn.emplace(*node.loggerQueue);
  return *node.logger;
}

// One logger after the other.
template <class Part>
void LogDelivery::performOnQueues(const Part& part) {
  for (const auto& node : _nodes) {
    if (_isStray) return;
    const SerialQueue::Turn turn(*node.loggerQueue);
    attempt([&] { part(*node.logger); });
  }
}

void LogDelivery::deliverInTurn(const DDLogMessage& message, bool andWrite) {
  performOnQueues([&](DDLogger& logger) { perform(logger, message, andWrite); });
}

void LogDelivery::deliverWatched(const DDLogMessage& message, bool andWrite) {
  const std::uint64_t number = ++_number;
  const std::size_t count = _nodes.size();
  const Progress over = progress(number, 0, 0);
  _message = &message;
  _andWrite = andWrite;
  _progress.store(progress(number, count, 0), std::memory_order_release);
  if (_bell.mustWake()) wakeOnlooker();
  for (std::size_t i = 0; i < count; ++i) {
    Progress expected = progress(number, count, i);
    if (!_progress.compare_exchange_strong(expected, progress(number, count, i + 1), std::memory_order_acq_rel)) break;
    const SerialQueue::Turn turn(*_nodes[i].loggerQueue);
    perform(*_nodes[i].logger, message, andWrite);
    if (_isStray) return;
  }
  Progress own = progress(number, count, count);
  if (_progress.compare_exchange_strong(own, over, std::memory_order_acq_rel)) return;
  while (_startedElsewhere.load(std::memory_order_acquire) != number) std::this_thread::yield();
  _group.wait();
}

void LogDelivery::startRestElsewhere(Progress seen) {
  const std::uint64_t number = numberOf(seen);
  if (!_progress.compare_exchange_strong(seen, progress(number, 0, 0), std::memory_order_acq_rel)) return;
  for (std::size_t i = seen & indexMask; i < _nodes.size(); ++i)
    startPart(*_nodes[i].loggerQueue, [this, &node = _nodes[i]] { perform(*node.logger, *_message, _andWrite); });
  _startedElsewhere.store(number, std::memory_order_release);
}

// Runs `part` on the queue and some other thread, as a member of the group; on this one when there is no memory for that.
void LogDelivery::startPart(SerialQueue& queue, const foundation::Dispatch::Block& part) {
  try {
    queue.async(_group, part);
  } catch (...) {
    const SerialQueue::Turn turn(queue);
    part();
  }
}

// The onlooker.

void LogDelivery::lookOn() {
  Progress seen = 0;
  while (!_isStopping.load(std::memory_order_acquire)) {
    const Progress now = _progress.load(std::memory_order_acquire);
    if (std::exchange(seen, now) != now) {
      std::this_thread::sleep_for(look);
      continue;
    }
    if (hasRest(now)) startRestElsewhere(now);
    _bell.sleepUnless(
        [&] { return _progress.load(std::memory_order_seq_cst) != now || _isStopping.load(std::memory_order_acquire); });
  }
}

// Without a thread to be had, or memory for it, there is no onlooker until the next delivery asks for one.
void LogDelivery::wakeOnlooker() {
  try {
    if (!_onlooker.joinable()) _onlooker = foundation::Threads::start([this] { lookOn(); });
    _bell.wake();
  } catch (const std::exception&) {
    _bell.hasNoSleeper();
  }
}

void LogDelivery::stop() {
  if (_isStray) return;
  _isStopping.store(true, std::memory_order_release);
  _bell.wake();
  if (_onlooker.joinable()) _onlooker.join();
  for (const auto& node : _nodes) node.loggerQueue->sync([] {});
  waitForRemoved();
}

void LogDelivery::didBecomeIdle() {
  performOnQueues([](DDLogger& logger) { logger.didBecomeIdle(); });
}

void LogDelivery::willEnd() {
  performOnQueues([](DDLogger& logger) { logger.willEnd(); });
}

void LogDelivery::flush() {
  for (const auto& node : _nodes) startPart(*node.loggerQueue, [this, &node] { attempt([&] { node.logger->flush(); }); });
  _group.wait();
}

// Forks.

bool LogDelivery::tryHold() {
  for (const auto& node : _nodes) {
    // A logger may be there twice.
    if (std::ranges::find(_held, node.loggerQueue.get()) != _held.end()) continue;
    if (!node.loggerQueue->tryEnter()) {
      letGo();
      return false;
    }
    _held.push_back(node.loggerQueue.get());
  }
  return true;
}

void LogDelivery::letGo() {
  for (auto* queue : _held) queue->leave();
  _held.clear();
}

// The threads are the parent's; their objects cannot be joined here.
void LogDelivery::forgetThreads() {
  std::construct_at(&_onlooker);
  std::construct_at(&_group);
  std::construct_at(&_leaving);
  _bell.hasNoSleeper();
}

void LogDelivery::didFork() {
  forgetThreads();
  _held.clear();
  for (const auto& node : _nodes) {
    node.loggerQueue->resetAfterFork();
    node.logger->didFork();
  }
}

void LogDelivery::goAstray() {
  forgetThreads();
  _isStray = true;
}
