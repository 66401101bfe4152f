#pragma once
// Reads the brand of this installer. Main thread.
#include <optional>

#include "platform/Platform.h"
#include "protocol/Branding.h"

// The brand in the main bundle's Branding.plist, Kelto's without the file. nullopt when the file cannot be read, tells no
// brand or that of another bundle; `failure` then says why, in the user's words.
std::optional<protocol::Branding> brandingOf(const platform::Platform& platform, platform::Failure& failure);
