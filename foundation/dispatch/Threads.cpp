#include "foundation/dispatch/Threads.h"

#include <atomic>
#include <utility>

namespace foundation::Threads {
namespace {

std::thread startAsMaker(std::function<void()> work) { return std::thread(std::move(work)); }

constinit std::atomic<Starter> starterOfTheSystem{startAsMaker};

}  // namespace

std::thread start(std::function<void()> work) {
  return starterOfTheSystem.load(std::memory_order_acquire)(std::move(work));
}

void setStarter(Starter starter) { starterOfTheSystem.store(starter, std::memory_order_release); }

}  // namespace foundation::Threads
