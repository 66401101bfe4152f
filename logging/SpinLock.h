#pragma once
// A lock for a few instructions. Any thread.
#include <atomic>
#include <thread>

class SpinLock {
 public:
  void lock() {
    while (_flag.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
  }
  void unlock() { _flag.clear(std::memory_order_release); }

 private:
  std::atomic_flag _flag;
};
