#pragma once
// A number that a process shares with its children.
#include <sys/mman.h>

#include <atomic>

namespace tests {

class SharedCount {
 public:
  SharedCount()
      : _count(new (::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Count(0)) {}
  ~SharedCount() { ::munmap(_count, sizeof(Count)); }
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;
  void increment() { ++*_count; }
  [[nodiscard]] int value() const { return *_count; }

 private:
  using Count = std::atomic<int>;
  Count* const _count;
};

}  // namespace tests
