#pragma once
// Property-list values as text for people: { key = value; }, (a, b), <data>. Pure; any thread.
#include <string>

#include "foundation/plist/PropertyList.h"

namespace platform::Linux {

// Without line feed at the end. A string on its own stands as it is; inside of a container it is quoted where it must be.
std::string description(const foundation::PropertyList::Value& value);

}  // namespace platform::Linux
