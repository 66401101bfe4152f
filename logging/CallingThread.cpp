#include "logging/CallingThread.h"

#include <functional>
#include <thread>

#include "foundation/dispatch/Fork.h"

namespace CallingThread {
namespace {

struct Known {
  std::uint32_t identifier = 0;
  std::uint32_t generation = 0;
  bool isKnown = false;
};

std::uint32_t ask(const platform::ProcessInfo* process) {
  if (process != nullptr) return process->currentThreadIdentifier();
  return static_cast<std::uint32_t>(std::hash<std::thread::id>()(std::this_thread::get_id()));
}

}  // namespace

std::uint32_t identifier(const platform::ProcessInfo* process) {
  thread_local Known known;
  // The one thread of a forked child has another number than the thread it was.
  if (!known.isKnown || known.generation != foundation::Fork::generation())
    known = {.identifier = ask(process), .generation = foundation::Fork::generation(), .isKnown = true};
  return known.identifier;
}

}  // namespace CallingThread
