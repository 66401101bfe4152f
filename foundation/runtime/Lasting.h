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
    T* object = _object.load(std::memory_order_acquire);
    return object != nullptr ? *object : makeFirst(make);
  }

 private:
  // Apart, so that later calls are a load and a comparison.
  template <class Make>
  [[gnu::cold, gnu::noinline]] T& makeFirst(const Make& make) {
    std::unique_ptr<T> made = make();
    T* other = nullptr;
    if (!_object.compare_exchange_strong(other, made.get(), std::memory_order_acq_rel)) return *other;
    return *made.release();
  }

  std::atomic<T*> _object{nullptr};
};

}  // namespace foundation
