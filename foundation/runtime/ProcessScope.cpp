#include "foundation/runtime/ProcessScope.h"

namespace foundation {

ProcessScope::~ProcessScope() {
  for (auto slot = _order.rbegin(); slot != _order.rend(); ++slot) (*slot)->object.reset();
}

void* ProcessScope::object(std::type_index type, const std::function<std::shared_ptr<void>()>& make) {
  Slot* slot = nullptr;
  {
    const std::lock_guard lock(_mutex);
    auto& place = _slots[type];
    if (!place) place = std::make_unique<Slot>();
    slot = place.get();
  }
  std::call_once(slot->made, [&] {
    slot->object = make();
    const std::lock_guard lock(_mutex);
    _order.push_back(slot);
  });
  return slot->object.get();
}

}  // namespace foundation
