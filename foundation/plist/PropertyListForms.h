#pragma once
// The two forms of a property list, for PropertyList.cpp only. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"

namespace foundation::PropertyList {

// Reads the XML form from UTF-8 text. On refusal `reason` says why and in which line.
std::optional<Value> parseXML(std::string_view text, std::string& reason);

// Reads the binary form. On refusal `reason` says why.
std::optional<Value> parseBinary(std::string_view bytes, std::string& reason);

// The date that many seconds after the start of 1970. Dates reach from 1677 to 2262; one beyond becomes the nearest end.
Date dateFromSeconds(std::int64_t seconds, std::chrono::nanoseconds fraction = {});

}  // namespace foundation::PropertyList
