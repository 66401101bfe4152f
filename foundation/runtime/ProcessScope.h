#pragma once
// Objects that exist at most once in a process: the designed singletons.
//
// They live in the Platform, so a test that installs a Platform of its own starts with none of them made. Any thread.
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <typeindex>
#include <vector>

namespace foundation {

class ProcessScope {
 public:
  ProcessScope() = default;
  ProcessScope(const ProcessScope&) = delete;
  ProcessScope& operator=(const ProcessScope&) = delete;
  ~ProcessScope();

  // The one T of the process. The first call makes it with `make`, which returns a shared_ptr<T>; if that is nullptr, every
  // later call returns nullptr too. Concurrent first calls wait for the one that makes it; `make` may ask for other types.
  // The scope owns its objects, and destroys them in the reverse order of their making.
  template <class T, class Make>
  T* once(Make make) {
    return static_cast<T*>(object(typeid(T), [&]() -> std::shared_ptr<void> { return make(); }));
  }

 private:
  struct Slot {
    std::once_flag made;
    std::shared_ptr<void> object;
  };

  void* object(std::type_index type, const std::function<std::shared_ptr<void>()>& make);

  std::mutex _mutex;
  std::map<std::type_index, std::unique_ptr<Slot>> _slots;
  std::vector<Slot*> _order;
};

}  // namespace foundation
