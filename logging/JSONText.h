#pragma once
// Pieces of JSON for records. Any thread.
#include <string>
#include <string_view>

#include "logging/LogFields.h"

// Appends `text` in quotation marks. Bytes above 127 of a text that is not UTF-8 become U+FFFD.
void appendJSONString(std::string& json, std::string_view text);

// Appends the fields as one object; nothing at all, and false, when there are none.
bool appendJSONObject(std::string& json, LogFieldReader fields);
