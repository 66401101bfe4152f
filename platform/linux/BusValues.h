#pragma once
// Property-list dictionaries as D-Bus values of type a{sv}. One thread at a time.
#include <systemd/sd-bus.h>

#include <cstddef>
#include <optional>

#include "foundation/plist/PropertyList.h"

namespace platform::Linux {

// Beyond these a dictionary that was received is refused.
inline constexpr std::size_t maximumBusBytes = std::size_t{16} << 20;
inline constexpr std::size_t maximumBusValues = 100'000;
// Values nested deeper than this in a received dictionary are left out.
inline constexpr int maximumBusDepth = 16;

// Appends `dictionary` to `message`; a negative error number on failure. Strings become s, booleans b, integers x, reals d,
// data ay, arrays av, dictionaries a{sv}; dates are left out.
int appendDictionary(sd_bus_message* message, const foundation::PropertyList::Dictionary& dictionary);

// Reads the a{sv} that comes next in `message`; nothing when there is none or it is too large. Reads the types above and
// also i, u, t (up to the largest x) and as; values of any other type are left out.
std::optional<foundation::PropertyList::Dictionary> readDictionary(sd_bus_message* message);

}  // namespace platform::Linux
