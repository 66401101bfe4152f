#include "foundation/runtime/Visit.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

#include "foundation/dispatch/Fork.h"
#include "foundation/runtime/Lasting.h"

namespace foundation {

// The place where one thread notes its visits. It is used again when the thread has ended, and never destroyed.
struct Visit::Visitor {
  std::atomic<std::uint32_t> visits{0};  // changed by its thread only
  std::atomic<bool> hasThread{true};
  Visitor* next = nullptr;
};

namespace {

using Visitor = Visit::Visitor;

constinit std::atomic<Visitor*> visitors{nullptr};
constinit std::atomic<bool> visitorsFence{true};
constinit thread_local Visitor* ownVisitor = nullptr;

// The time between two looks whether a visit is over.
constexpr std::chrono::microseconds look{50};

struct ThreadsEnd {
  ~ThreadsEnd() { std::exchange(ownVisitor, nullptr)->hasThread.store(false, std::memory_order_release); }
};

// The visits of other threads do not end in a forked child.
class ForkedVisits {
 public:
  ForkedVisits() : _handlers(Fork::addHandlers({.child = forgetOthers})) {}
  ~ForkedVisits() { Fork::removeHandlers(_handlers); }
  ForkedVisits(const ForkedVisits&) = delete;
  ForkedVisits& operator=(const ForkedVisits&) = delete;

 private:
  static void forgetOthers() {
    for (Visitor* one = visitors.load(); one != nullptr; one = one->next) {
      if (one == ownVisitor) continue;
      one->visits.store(0);
      one->hasThread.store(false);
    }
  }

  const Fork::HandlersID _handlers;
};

Visitor& newVisitor() {
  for (Visitor* one = visitors.load(std::memory_order_acquire); one != nullptr; one = one->next)
    if (!one->hasThread.load(std::memory_order_relaxed) && !one->hasThread.exchange(true, std::memory_order_acquire))
      return *one;
  auto* made = new Visitor;
  made->next = visitors.load(std::memory_order_relaxed);
  while (!visitors.compare_exchange_weak(made->next, made, std::memory_order_release)) {
  }
  return *made;
}

[[gnu::noinline]] Visitor& join() {
  static constinit Lasting<ForkedVisits> forks;
  forks.get([] { return std::make_unique<ForkedVisits>(); });
  ownVisitor = &newVisitor();
  [[maybe_unused]] static thread_local const ThreadsEnd end;
  return *ownVisitor;
}

}  // namespace

Visit::Visit() : _visitor(ownVisitor != nullptr ? *ownVisitor : join()) {
  const std::uint32_t visits = _visitor.visits.load(std::memory_order_relaxed);
  if (visits == 0 && visitorsFence.load(std::memory_order_relaxed))
    _visitor.visits.fetch_add(1, std::memory_order_seq_cst);
  else
    _visitor.visits.store(visits + 1, std::memory_order_relaxed);
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

Visit::~Visit() { _visitor.visits.store(_visitor.visits.load(std::memory_order_relaxed) - 1, std::memory_order_release); }

void Visit::setVisitorsFence(bool fence) { visitorsFence.store(fence); }

void Visit::waitForOthers() {
  for (const Visitor* one = visitors.load(std::memory_order_acquire); one != nullptr; one = one->next)
    while (one != ownVisitor && one->visits.load(std::memory_order_seq_cst) != 0) std::this_thread::sleep_for(look);
}

}  // namespace foundation
