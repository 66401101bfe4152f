#include "platform/PropertyList.h"

namespace platform::PropertyList {

bool Value::operator==(const Value& other) const { return _storage == other._storage; }

}  // namespace platform::PropertyList
