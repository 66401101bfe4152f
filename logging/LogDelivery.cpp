#include "logging/LogDelivery.h"

#include <algorithm>
#include <utility>

#include "foundation/dispatch/Fork.h"

using foundation::Dispatch::SerialQueue;

namespace {

constexpr std::chrono::microseconds look{500};
// A logger that has not come further after this many looks is stuck.
constexpr int looksUntilStuck = 3;

// The delivery whose part the calling thread is doing on a logger's queue.
thread_local const LogDelivery* partHere = nullptr;

}  // namespace

void LogDelivery::report(const char* reason) {
  if (!_hasReported.exchange(true))
    _systemLog.log(std::string("DDLog: a logger or a formatter has thrown an exception: ") + reason);
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
  wakeOnlooker();
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
  for (const auto& node : _delivery._nodes) {
    const SerialQueue::Turn turn(*node.loggerQueue);
    _delivery.attempt([&] { node.logger->writePending(); });
  }
}

// The only logger, on its queue.
DDLogger& LogDelivery::Round::only() {
  const DDLoggerNode& node = _delivery._nodes.front();
  if (_turn && _turn->isAwaited()) _turn.reset();
  if (!_turn) _turn.emplace(*node.loggerQueue);
  return *node.logger;
}

void LogDelivery::deliverInTurn(const DDLogMessage& message, bool andWrite) {
  const foundation::Fork::Witness witness;
  for (const auto& node : _nodes) {
    const SerialQueue::Turn turn(*node.loggerQueue);
    perform(*node.logger, message, andWrite);
    if (witness.isInChild()) return;
  }
}

void LogDelivery::deliverWatched(const DDLogMessage& message, bool andWrite) {
  const foundation::Fork::Witness witness;
  const std::uint64_t number = ++_number;
  const std::size_t count = _nodes.size();
  _message = &message;
  _andWrite = andWrite;
  _progress.store(progress(number, count, 0), std::memory_order_release);
  for (std::size_t i = 0; i < count; ++i) {
    Progress expected = progress(number, count, i);
    if (!_progress.compare_exchange_strong(expected, progress(number, count, i + 1), std::memory_order_acq_rel)) break;
    const SerialQueue::Turn turn(*_nodes[i].loggerQueue);
    perform(*_nodes[i].logger, message, andWrite);
    if (witness.isInChild()) return;
  }
  Progress own = progress(number, count, count);
  if (_progress.compare_exchange_strong(own, 0, std::memory_order_acq_rel)) return;
  while (_startedElsewhere.load(std::memory_order_acquire) != number) std::this_thread::yield();
  _group.wait();
}

// Progress 0 with the number on is a place that the draining thread never expects.
void LogDelivery::startRestElsewhere(Progress seen) {
  const std::uint64_t number = seen >> (2 * indexBits);
  if (!_progress.compare_exchange_strong(seen, 0, std::memory_order_acq_rel)) return;
  // Should one of them fork, then the child has neither the draining thread nor what lies on its stack.
  const auto message = std::make_shared<const DDLogMessage>(*_message);
  for (std::size_t i = seen & indexMask; i < _nodes.size(); ++i)
    startPart(*_nodes[i].loggerQueue,
              [this, logger = _nodes[i].logger, message, andWrite = _andWrite] { perform(*logger, *message, andWrite); });
  _startedElsewhere.store(number, std::memory_order_release);
}

void LogDelivery::startPart(SerialQueue& queue, foundation::Dispatch::Block part) {
  queue.async(_group, [this, part = std::move(part)] {
    partHere = this;
    part();
    partHere = nullptr;
  });
}

bool LogDelivery::isPartHere() const { return partHere == this; }

void LogDelivery::lookOn() {
  Progress last = 0;
  int looks = 0;
  while (!_isStopping.load(std::memory_order_acquire)) {
    const std::uint32_t calls = _calls.load(std::memory_order_acquire);
    if (!_isOnlookerNeeded.load(std::memory_order_acquire)) {
      _calls.wait(calls, std::memory_order_acquire);
      continue;
    }
    std::this_thread::sleep_for(look);
    const Progress now = _progress.load(std::memory_order_acquire);
    const bool hasRest = (now & indexMask) < ((now >> indexBits) & indexMask);
    looks = now == last && hasRest ? looks + 1 : 0;
    last = now;
    if (looks >= looksUntilStuck - 1) startRestElsewhere(now);
  }
}

void LogDelivery::wakeOnlooker() {
  if (!hasSeveral() || _processors < 2) return;
  if (_isOnlookerNeeded.exchange(true, std::memory_order_acq_rel)) return;
  _calls.fetch_add(1, std::memory_order_release);
  _calls.notify_all();
  if (!_onlooker.joinable()) _onlooker = std::thread([this] { lookOn(); });
}

void LogDelivery::stop() {
  _isStopping.store(true, std::memory_order_release);
  _calls.fetch_add(1, std::memory_order_release);
  _calls.notify_all();
  if (_onlooker.joinable()) _onlooker.join();
  for (const auto& node : _nodes) node.loggerQueue->sync([] {});
  waitForRemoved();
}

void LogDelivery::didBecomeIdle() {
  for (const auto& node : _nodes) {
    const SerialQueue::Turn turn(*node.loggerQueue);
    attempt([&] { node.logger->didBecomeIdle(); });
  }
}

void LogDelivery::willEnd() {
  for (const auto& node : _nodes) {
    const SerialQueue::Turn turn(*node.loggerQueue);
    attempt([&] { node.logger->willEnd(); });
  }
}

void LogDelivery::flush() {
  for (const auto& node : _nodes) startPart(*node.loggerQueue, [this, &node] { attempt([&] { node.logger->flush(); }); });
  _group.wait();
}

void LogDelivery::didFork() {
  partHere = nullptr;
  // The threads are the parent's; their objects cannot be joined here.
  std::construct_at(&_onlooker);
  std::construct_at(&_group);
  std::construct_at(&_leaving);
  _progress.store(0);
  _isOnlookerNeeded.store(false);
  for (const auto& node : _nodes) {
    node.loggerQueue->resetAfterFork();
    node.logger->didFork();
  }
}
