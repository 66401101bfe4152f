#include "foundation/runtime/Visit.h"

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "foundation/dispatch/Fork.h"
#include "foundation/runtime/Lasting.h"

namespace foundation {

constinit std::atomic<bool> Visit::_visitorsFence{true};
constinit thread_local Visit::Visitor* Visit::_own = nullptr;

namespace {

using Visitor = Visit::Visitor;

constinit std::atomic<Visitor*> visitors{nullptr};

// The time between two looks whether a visit is over.
constexpr std::chrono::microseconds look{50};

class ChildHandler {
 public:
  explicit ChildHandler(void (*handler)()) : _handlers(Fork::addHandlers({.child = handler})) {}
  ~ChildHandler() { Fork::removeHandlers(_handlers); }
  ChildHandler(const ChildHandler&) = delete;
  ChildHandler& operator=(const ChildHandler&) = delete;

 private:
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

}  // namespace

Visitor& Visit::join() {
  struct ThreadsEnd {
    ~ThreadsEnd() { std::exchange(_own, nullptr)->hasThread.store(false, std::memory_order_release); }
  };
  static constinit Lasting<ChildHandler> forks;
  forks.get([] { return std::make_unique<ChildHandler>(forgetOthers); });
  _own = &newVisitor();
  [[maybe_unused]] static thread_local const ThreadsEnd end;
  return *_own;
}

// The visits of other threads do not end in a forked child.
void Visit::forgetOthers() {
  for (Visitor* one = visitors.load(); one != nullptr; one = one->next) {
    if (one == _own) continue;
    one->visits.store(0);
    one->hasThread.store(false);
  }
}

void Visit::setVisitorsFence(bool fence) { _visitorsFence.store(fence); }

void Visit::waitForOthers() {
  for (const Visitor* one = visitors.load(std::memory_order_acquire); one != nullptr; one = one->next)
    while (one != _own && one->visits.load(std::memory_order_seq_cst) != 0) std::this_thread::sleep_for(look);
}

}  // namespace foundation
