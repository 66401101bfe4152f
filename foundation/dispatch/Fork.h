#pragma once
// Puts things in order when the process forks: a child has one thread, and its locks are as they were in the parent.
//
// The platform's own layer connects `prepare`, `parent` and `child` below with the operating system; where it does not, a
// fork needs none of this or does not exist.
#include <cstdint>
#include <functional>

namespace foundation::Fork {

// The kind of a handler, by the things it holds while the process forks. Handlers prepare in this order and go on in the
// opposite one: those that wait for other threads do so while these can still get all they need.
enum class Stage {
  making,   // waits until nothing is half made
  work,     // waits until other threads have done something
  threads,  // keeps threads from beginning anything
  locks     // takes locks that are held for moments only
};

struct Handlers {
  Stage stage = Stage::locks;
  std::function<void()> prepare = nullptr;  // before the fork, in the thread that forks
  std::function<void()> parent = nullptr;   // after it, in the parent; not without `prepare`
  std::function<void()> child = nullptr;    // after it, in the child, whose only thread this is
};

using HandlersID = std::uint64_t;

// Any thread. Within a stage `prepare` runs for the handlers added last first. In the child those go first that have
// nothing to prepare. Handlers may be added and removed at any time but by handlers.
HandlersID addHandlers(Handlers handlers);
// Handlers that have begun to prepare for a fork are waited for; those with nothing to prepare never are.
void removeHandlers(HandlersID handlers);

// How many forks lie between the first process and this one: what a thread remembers about its process holds only as long
// as this number stays.
std::uint32_t generation();

void prepare();
void parent();
void child();

}  // namespace foundation::Fork
