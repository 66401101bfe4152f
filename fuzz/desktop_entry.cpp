#include "privileged/tool/DesktopEntry.h"

#include <algorithm>

#include "fuzz/Target.h"
#include "privileged/tool/Failure.h"
#include "protocol/Utf8.h"

namespace {

using namespace AssistantTool;

constexpr const char* bundle = "/opt/My \"Editor\".app";
// As the two keys have it that start something.
constexpr std::string_view command = "Exec=\"/opt/My \\\\\"Editor\\\\\".app/";
constexpr std::string_view program = "TryExec=/opt/My \"Editor\".app/";

void checkLine(std::string_view line) {
  const auto isOf = [&](std::string_view key) { return line.substr(0, line.find('=')) == key; };
  fuzz::require(!isOf("Exec") || line.starts_with(command), "only a program in the bundle is run");
  fuzz::require(!isOf("TryExec") || line.starts_with(program), "only a program in the bundle is looked for");
  for (const char* key : {"DBusActivatable", "Path", "URL", "Implements", "Hidden"})
    fuzz::require(!isOf(key), "no other key starts something");
  fuzz::require(!line.starts_with("X-") || line == "X-Kelto-Bundle=/opt/My \"Editor\".app", "no key of others");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = fuzz::text(data, size);
  static_cast<void>(DesktopEntry::bundleNamedBy(bytes));
  try {
    const DesktopEntry entry(bytes);
    for (const auto& path : entry.programs())
      fuzz::require(("/" + path + "/").find("/../") == std::string::npos && !path.starts_with('/'), "a path stays inside");
    const auto text = entry.installedFor(bundle);
    fuzz::require(protocol::isValidUTF8(text), "an entry is text");
    fuzz::require(DesktopEntry::bundleNamedBy(text) == bundle, "an entry names its bundle");
    for (std::string_view rest = text; !rest.empty();) {
      const auto line = rest.substr(0, rest.find('\n'));
      checkLine(line);
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
  } catch (const Failure& failure) {
    fuzz::require(!std::string_view(failure.what()).empty(), "a refusal has a reason");
  }
  return 0;
}
