#pragma once
// Path strings of the user's own folders. Any thread.
#include <string>

namespace NSString::KAPathExtensions {

// A fresh absolute path in the user's temporary folder, "Kelto" and ten characters. Only the name is found: no file is
// made, and whoever uses the name makes the file. Empty when no unused name was found.
std::string temporaryPath();

}  // namespace NSString::KAPathExtensions
