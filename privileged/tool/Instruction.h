#pragma once
// The instruction as it comes over standard input.
#include <string>
#include <string_view>

#include "protocol/InstructionArchive.h"

namespace AssistantTool {

// Reads the length and exactly that many bytes, and nothing after them. Throws Failure: input that ends early, a length
// beyond the archive's limit, a malformed archive.
InstructionArchive::Instructions readInstruction(int input);

// Throws Failure when the key is missing.
const std::string& requiredValue(const InstructionArchive::Instructions& instructions, std::string_view key);

}  // namespace AssistantTool
