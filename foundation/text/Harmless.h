#pragma once
// Text of strangers for a terminal or one line of a log.
#include <string>
#include <string_view>

namespace foundation {

// `text` with control characters, line feeds among them, and bytes that are not UTF-8 as "\xHH". The characters of `kept`
// stay as they are.
std::string harmless(std::string_view text, std::string_view kept = {});

// True when harmless(text, kept) would be another text.
bool isHarmful(std::string_view text, std::string_view kept = {});

}  // namespace foundation
