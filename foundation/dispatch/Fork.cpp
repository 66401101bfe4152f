#include "foundation/dispatch/Fork.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "foundation/runtime/Lasting.h"

namespace foundation::Fork {
namespace {

struct Registry {
  // Held from the first handler before a fork to the last one after it. Taken before `mutex`.
  std::mutex forking;
  // Guards what follows, and is held while the process forks, but not while handlers prepare: one that waits for another
  // thread would wait for ever if that thread added or removed handlers meanwhile.
  std::mutex mutex;
  std::condition_variable isOver;
  std::map<HandlersID, Handlers> handlers;
  HandlersID last = 0;
  std::vector<HandlersID> underWay;  // the handlers that prepare for a fork or have prepared, in this order

  [[nodiscard]] bool isUnderWay(HandlersID one) const { return std::ranges::find(underWay, one) != underWay.end(); }
};

// A process may fork while it ends.
Registry& registry() {
  static constinit Lasting<Registry> all;
  return all.get([] { return std::make_unique<Registry>(); });
}

constinit std::atomic<std::uint32_t> forks{0};

// 0 for none.
HandlersID nextToPrepare(const Registry& all) {
  HandlersID next = 0;
  for (auto entry = all.handlers.rbegin(); entry != all.handlers.rend(); ++entry) {
    if (!entry->second.prepare || all.isUnderWay(entry->first)) continue;
    if (next == 0 || entry->second.stage < all.handlers.at(next).stage) next = entry->first;
  }
  return next;
}

// The handlers that prepared, in the opposite order.
std::vector<Handlers> preparedHandlers(const Registry& all) {
  std::vector<Handlers> prepared;
  for (auto id = all.underWay.rbegin(); id != all.underWay.rend(); ++id) prepared.push_back(all.handlers.at(*id));
  return prepared;
}

void end(Registry& all) {
  {
    const std::lock_guard lock(all.mutex);
    all.underWay.clear();
  }
  all.isOver.notify_all();
  all.forking.unlock();
}

}  // namespace

HandlersID addHandlers(Handlers handlers) {
  auto& all = registry();
  const std::lock_guard lock(all.mutex);
  all.handlers.emplace(++all.last, std::move(handlers));
  return all.last;
}

void removeHandlers(HandlersID handlers) {
  auto& all = registry();
  std::unique_lock lock(all.mutex);
  all.isOver.wait(lock, [&] { return !all.isUnderWay(handlers); });
  all.handlers.erase(handlers);
}

std::uint32_t generation() { return forks.load(std::memory_order_relaxed); }

void prepare() {
  auto& all = registry();
  all.forking.lock();
  std::unique_lock lock(all.mutex);
  while (const HandlersID next = nextToPrepare(all)) {
    all.underWay.push_back(next);
    const auto prepareOne = all.handlers.at(next).prepare;
    lock.unlock();
    prepareOne();
    lock.lock();
  }
  lock.release();
}

void parent() {
  auto& all = registry();
  const auto prepared = preparedHandlers(all);
  all.mutex.unlock();
  for (const auto& handlers : prepared) handlers.parent();
  end(all);
}

void child() {
  forks.fetch_add(1, std::memory_order_relaxed);
  auto& all = registry();
  // Threads of the parent may have been waiting on it.
  std::construct_at(&all.isOver);
  std::vector<Handlers> toGoOn;
  for (const auto& entry : all.handlers)
    if (!entry.second.prepare) toGoOn.push_back(entry.second);
  std::ranges::move(preparedHandlers(all), std::back_inserter(toGoOn));
  all.mutex.unlock();
  for (const auto& handlers : toGoOn) handlers.child();
  end(all);
}

}  // namespace foundation::Fork
