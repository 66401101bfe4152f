#include "privileged/tool/Instruction.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

void readExactly(int input, char* bytes, std::size_t length) {
  while (length > 0) {
    const auto got = ::read(input, bytes, length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failWithSystemError("cannot read the instruction");
    if (got == 0) throw Failure("the instruction ends early");
    bytes += got;
    length -= static_cast<std::size_t>(got);
  }
}

}  // namespace

InstructionArchive::Instructions readInstruction(int input) {
  std::uint64_t length = 0;
  readExactly(input, reinterpret_cast<char*>(&length), sizeof length);
  if (length > InstructionArchive::maximumBytes) throw Failure("the instruction is too long");
  std::string archive(length, '\0');
  readExactly(input, archive.data(), archive.size());
  std::string reason;
  auto instructions = InstructionArchive::unarchived(archive, &reason);
  if (!instructions) throw Failure("malformed instruction: " + reason);
  return *std::move(instructions);
}

const std::string& requiredValue(const InstructionArchive::Instructions& instructions, std::string_view key) {
  const auto* value = InstructionArchive::valueForKey(instructions, key);
  if (value == nullptr) throw Failure("no \"" + std::string(key) + "\" in the instruction");
  return *value;
}

}  // namespace AssistantTool
