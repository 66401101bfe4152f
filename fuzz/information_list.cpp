// A property list that is accepted tells only texts that stand in it as they are.
#include "privileged/tool/InformationList.h"

#include "fuzz/Target.h"
#include "privileged/tool/Failure.h"

namespace {

using namespace AssistantTool;

void checkText(const std::optional<std::string>& text, std::string_view key, std::string_view bytes) {
  if (!text) return;
  fuzz::require(bytes.find(">" + *text + "</string") != std::string_view::npos, "a value stands in the list");
  fuzz::require(bytes.find(key) != std::string_view::npos, "its key does too");
  fuzz::require(text->find_first_of("<&") == std::string::npos, "a value is plain text");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = fuzz::text(data, size);
  try {
    const auto found = bundleInformationOf(bytes);
    checkText(found.identifier, "CFBundleIdentifier", bytes);
    checkText(found.version, "CFBundleVersion", bytes);
  } catch (const Failure& failure) {
    fuzz::require(!std::string_view(failure.what()).empty(), "a refusal has a reason");
  }
  return 0;
}
