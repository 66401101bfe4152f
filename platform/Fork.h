#pragma once
// What has to be put in order when the process forks: a child has one thread, and the locks as they were.
//
// The platform's own layer connects `prepare`, `parent` and `child` below with the operating system; where it does not, a
// fork needs none of this or does not exist.
#include <cstdint>
#include <functional>

namespace platform::Fork {

struct Handlers {
  std::function<void()> prepare;  // before the fork, in the thread that forks
  std::function<void()> parent;   // after it, in the parent
  std::function<void()> child;    // after it, in the child, whose only thread this is
};

using HandlersID = std::uint64_t;

// Any thread. `prepare` runs for the handlers added last first, the others in the opposite order. Handlers must not add or
// remove handlers.
HandlersID addHandlers(Handlers handlers);
void removeHandlers(HandlersID handlers);

// How many forks lie between the first process and this one: what a thread remembers about its process holds only as long
// as this number stays.
std::uint32_t generation();

void prepare();
void parent();
void child();

}  // namespace platform::Fork
