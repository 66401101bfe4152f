#pragma once
// The results of a command on standard output: as JSON, or as lines for a person. Main thread.
#include <string>

#include "foundation/plist/PropertyList.h"
#include "platform/Bundle.h"

namespace cli {

using foundation::PropertyList::Dictionary;

// One line for each value, "key: value"; what lies deeper is indented.
std::string linesOf(const Dictionary& values);

// Prints the values as JSON, or else as lines.
void print(const Dictionary& values, bool asJSON);

// The version that a person knows the bundle by; empty if it tells none.
std::string versionOf(const platform::Bundle& bundle);

}  // namespace cli
