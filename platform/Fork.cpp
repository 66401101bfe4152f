#include "platform/Fork.h"

#include <atomic>
#include <map>
#include <mutex>
#include <ranges>
#include <vector>

namespace platform::Fork {
namespace {

struct Registry {
  // Held from the first handler before a fork to the last one after it. Taken before `mutex`.
  std::mutex forking;
  // Guards what follows, and is held while the process forks, but not while handlers prepare: one that waits for another
  // thread would wait for ever if that thread added handlers meanwhile.
  std::mutex mutex;
  std::map<HandlersID, Handlers> handlers;
  HandlersID last = 0;
  // Of the fork under way: the handlers that have prepared, in the order of adding.
  std::vector<Handlers> underWay;
  HandlersID lastUnderWay = 0;
};

// Never destroyed: a process may fork while it ends.
Registry& registry() {
  static auto* made = new Registry;
  return *made;
}

std::atomic<std::uint32_t> forks{0};

}  // namespace

HandlersID addHandlers(Handlers handlers) {
  auto& all = registry();
  const std::lock_guard lock(all.mutex);
  all.handlers.emplace(++all.last, std::move(handlers));
  return all.last;
}

void removeHandlers(HandlersID handlers) {
  auto& all = registry();
  const std::scoped_lock lock(all.forking, all.mutex);
  all.handlers.erase(handlers);
}

std::uint32_t generation() { return forks.load(std::memory_order_relaxed); }

void prepare() {
  auto& all = registry();
  all.forking.lock();
  all.underWay.clear();
  all.lastUnderWay = 0;
  for (;;) {
    all.mutex.lock();
    std::vector<Handlers> added;
    for (auto entry = all.handlers.upper_bound(all.lastUnderWay); entry != all.handlers.end(); ++entry)
      added.push_back(entry->second);
    if (added.empty()) return;
    all.lastUnderWay = all.handlers.rbegin()->first;
    all.mutex.unlock();
    for (const auto& handlers : std::views::reverse(added)) handlers.prepare();
    all.underWay.insert(all.underWay.end(), added.begin(), added.end());
  }
}

void parent() {
  auto& all = registry();
  all.mutex.unlock();
  for (const auto& handlers : all.underWay) handlers.parent();
  all.forking.unlock();
}

void child() {
  forks.fetch_add(1, std::memory_order_relaxed);
  auto& all = registry();
  all.mutex.unlock();
  for (const auto& handlers : all.underWay) handlers.child();
  all.forking.unlock();
}

}  // namespace platform::Fork
