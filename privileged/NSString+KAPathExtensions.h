#pragma once
// Path strings of the user's own folders. Any thread.
#include <string>

#include "platform/FileManager.h"

namespace NSString::KAPathExtensions {

// A fresh absolute path in the user's temporary folder: "Kelto" and ten characters. Reserves nothing: the caller makes the
// file. Empty when no unused name was found.
std::string temporaryPath(const platform::FileManager& files);

}  // namespace NSString::KAPathExtensions
