#include "platform/Platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace platform {
namespace {

std::atomic<Platform*> thePlatform{nullptr};

}  // namespace

Platform& current() {
  Platform* platform = thePlatform.load(std::memory_order_acquire);
  if (platform == nullptr) {
    std::fputs("no platform is installed: make a platform::Installation first\n", stderr);
    std::abort();
  }
  return *platform;
}

Installation::Installation(Platform& platform) : _logging(platform), _views(platform.views) {
  thePlatform.store(&platform, std::memory_order_release);
}

Installation::~Installation() { thePlatform.store(nullptr, std::memory_order_release); }

}  // namespace platform
