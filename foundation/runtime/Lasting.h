#pragma once
// An object that is made at its first use and never destroyed, for what may be asked for until the very end of a process.
//
// Unlike a function's own static object it locks nothing while it is made: threads that come at the same time each make
// one, and the first one stays. So a process may fork in the middle of it, and the child makes its own. Any thread.
#include <atomic>
#include <memory>

namespace foundation {

template <class T>
class Lasting {
 public:
  // `make` returns a std::unique_ptr<T>.
  template <class Make>
  T& get(Make make) {
    if (T* object = _object.load(std::memory_order_acquire)) return *object;
    std::unique_ptr<T> made = make();
    T* first = nullptr;
    if (!_object.compare_exchange_strong(first, made.get(), std::memory_order_acq_rel)) return *first;
    return *made.release();
  }

 private:
  std::atomic<T*> _object{nullptr};
};

}  // namespace foundation
