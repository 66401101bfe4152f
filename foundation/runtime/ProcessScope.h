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

#include "foundation/dispatch/Fork.h"

namespace foundation {

class ProcessScope {
 public:
  ProcessScope();
  ProcessScope(const ProcessScope&) = delete;
  ProcessScope& operator=(const ProcessScope&) = delete;
  ~ProcessScope();

  // The one T of the process. The first call makes it with `make`, which returns a shared_ptr<T>; if that is nullptr, every
  // later call returns nullptr too. Concurrent first calls wait for the one that makes it, and so does a fork; `make` may
  // ask for other types.
  // The scope owns its objects. They are destroyed in the reverse order of their making, at its end or by `end`.
  template <class T, class Make>
  T* once(Make make) {
    return static_cast<T*>(object(typeid(T), [&]() -> std::shared_ptr<void> { return make(); }));
  }

  // From then on `once` returns nullptr for every object that was made.
  void end();

 private:
  struct Slot {
    bool isMade = false;
    std::shared_ptr<void> object;
  };

  void* object(std::type_index type, const std::function<std::shared_ptr<void>()>& make);

  std::recursive_mutex _making;  // held while an object is made; taken before `mutex`
  std::mutex _mutex;             // guards what follows
  std::map<std::type_index, Slot> _slots;
  std::vector<Slot*> _order;
  Fork::HandlersID _makingHandlers = 0;
  Fork::HandlersID _handlers = 0;
};

}  // namespace foundation
