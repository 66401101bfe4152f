#pragma once
// The use of something that another thread may take away, for the duration of one call.
//
// A visitor notes in a place of its own that it is here, and then reads whether the thing is still there. Its owner takes
// it away first and then reads who is here. At least one of the two sees the other, as long as neither lets its read
// overtake its write. Either each visitor fences, or the owner makes all threads of the process do so before it reads.
#include <atomic>
#include <cstdint>

#include "foundation/Api.h"

namespace foundation {

// Any thread; visits nest. All things share the visits. A statement makes a visit before anything else, so it is inline.
class Visit {
 public:
  // The place where one thread notes its visits. It is used again when the thread has ended, and never destroyed. In a
  // cache line of its own: a neighbour that other threads write would slow every statement down.
  struct alignas(64) Visitor {
    std::atomic<std::uint32_t> visits{0};  // changed by its thread only
    std::atomic<bool> hasThread{true};
    Visitor* next = nullptr;
  };

  Visit() : _visitor(_own != nullptr ? *_own : join()) {
    const std::uint32_t visits = _visitor.visits.load(std::memory_order_relaxed);
    if (visits == 0 && _visitorsFence.load(std::memory_order_relaxed))
      _visitor.visits.fetch_add(1, std::memory_order_seq_cst);
    else
      _visitor.visits.store(visits + 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }
  ~Visit() { _visitor.visits.store(_visitor.visits.load(std::memory_order_relaxed) - 1, std::memory_order_release); }
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

  // False if the owner fences for the visitors. Before other threads start.
  KELTO_API static void setVisitorsFence(bool fence);
  // Waits until each visit that another thread had begun is over.
  KELTO_API static void waitForOthers();

 private:
  // The calling thread's first visit. Apart, so that later ones are inline.
  [[gnu::cold, gnu::noinline]] KELTO_API static Visitor& join();
  static void forgetOthers();

  KELTO_API static std::atomic<bool> _visitorsFence;
  KELTO_API static constinit thread_local Visitor* _own;

  Visitor& _visitor;
};

}  // namespace foundation
