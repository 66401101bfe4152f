#pragma once
// Property lists as JSON, in one line. Pure; any thread.
#include <string>

#include "foundation/plist/PropertyList.h"

namespace cli {

// Keys are sorted. A date is its text; data is null, and text that is not UTF-8 is read as ASCII.
std::string jsonOf(const foundation::PropertyList::Value& value);

}  // namespace cli
