#include "platform/Fork.h"

#include <atomic>
#include <map>
#include <mutex>
#include <ranges>

namespace platform::Fork {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<HandlersID, Handlers> handlers;
  HandlersID last = 0;
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
  const std::lock_guard lock(all.mutex);
  all.handlers.erase(handlers);
}

std::uint32_t generation() { return forks.load(std::memory_order_relaxed); }

void prepare() {
  auto& all = registry();
  all.mutex.lock();
  for (const auto& entry : std::views::reverse(all.handlers)) entry.second.prepare();
}

void parent() {
  auto& all = registry();
  for (const auto& entry : all.handlers) entry.second.parent();
  all.mutex.unlock();
}

void child() {
  forks.fetch_add(1, std::memory_order_relaxed);
  auto& all = registry();
  for (const auto& entry : all.handlers) entry.second.child();
  all.mutex.unlock();
}

}  // namespace platform::Fork
