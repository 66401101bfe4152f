#include "foundation/runtime/ProcessScope.h"

#include <utility>

namespace foundation {

ProcessScope::ProcessScope()
    // The child's thread has another number than the one that locked the recursive mutex, and could not unlock it.
    : _makingHandlers(Fork::addHandlers({.stage = Fork::Stage::making,
                                         .prepare = [this] { _making.lock(); },
                                         .parent = [this] { _making.unlock(); },
                                         .child = [this] { std::construct_at(&_making); }})),
      _handlers(Fork::addHandlers({.prepare = [this] { _mutex.lock(); },
                                   .parent = [this] { _mutex.unlock(); },
                                   .child = [this] { _mutex.unlock(); }})) {}

ProcessScope::~ProcessScope() {
  end();
  Fork::removeHandlers(_handlers);
  Fork::removeHandlers(_makingHandlers);
}

void ProcessScope::end() {
  for (auto slot = _order.rbegin(); slot != _order.rend(); ++slot) (*slot)->object.reset();
}

void* ProcessScope::object(std::type_index type, const std::function<std::shared_ptr<void>()>& make) {
  {
    const std::lock_guard lock(_mutex);
    const auto slot = _slots.find(type);
    if (slot != _slots.end() && slot->second.isMade) return slot->second.object.get();
  }
  const std::lock_guard making(_making);
  Slot* slot = nullptr;
  {
    const std::lock_guard lock(_mutex);
    slot = &_slots[type];
    if (slot->isMade) return slot->object.get();
  }
  auto made = make();
  const std::lock_guard lock(_mutex);
  _order.push_back(slot);
  slot->object = std::move(made);
  slot->isMade = true;
  return slot->object.get();
}

}  // namespace foundation
