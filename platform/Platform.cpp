#include "platform/Platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace platform {
namespace {

std::atomic<Platform*> theOne{nullptr};

}  // namespace

Platform& current() {
  Platform* platform = theOne.load(std::memory_order_acquire);
  if (platform == nullptr) {
    std::fputs("no platform is installed: make a platform::Installation first\n", stderr);
    std::abort();
  }
  return *platform;
}

Installation::Installation(Platform& platform) : _logging(platform), _views(platform.views) {
  theOne.store(&platform, std::memory_order_release);
}

Installation::~Installation() { theOne.store(nullptr, std::memory_order_release); }

}  // namespace platform
