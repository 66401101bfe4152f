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

// The values of lines "key: value", as another program of this system prints them.
Dictionary valuesOfLines(const std::string& lines);
// The cause in the last line of a program that failed, without the program's name.
std::string causeOfHelper(const std::string& lines);

// The version that a person knows the bundle by; empty if it tells none.
std::string versionOf(const platform::Bundle& bundle);

}  // namespace cli
