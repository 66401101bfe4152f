// A manifest that is accepted is written the same, byte by byte, and lists a tree: folders come before their contents,
// nothing leaves the bundle, and nothing comes twice.
#include "privileged/tool/Manifest.h"

#include <set>

#include "fuzz/Target.h"
#include "privileged/tool/BundleVersion.h"
#include "privileged/tool/Failure.h"

namespace {

using namespace AssistantTool;

std::optional<Manifest> parsed(std::string_view bytes) {
  try {
    return manifestOf(bytes);
  } catch (const Failure& failure) {
    fuzz::require(!std::string_view(failure.what()).empty(), "a refusal has a reason");
    return std::nullopt;
  }
}

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? std::string(bundleItself) : path.substr(0, slash);
}

void requirePathInside(const std::string& path) {
  const auto framed = "/" + path + "/";
  for (const std::string_view part :
       {std::string_view("//"), std::string_view("/./"), std::string_view("/../"), std::string_view("\0", 1)})
    fuzz::require(framed.find(part) == std::string::npos, "a path names one place in the bundle");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = fuzz::text(data, size);
  const auto manifest = parsed(bytes);
  if (!manifest) return 0;

  fuzz::require(textOf(*manifest) == bytes, "a manifest has one text");
  fuzz::require(isBundleIdentifier(manifest->identifier) && isBundleVersion(manifest->version), "it says of which bundle");
  std::set<std::string> folders;
  std::set<std::string> paths;
  for (const auto& entry : manifest->entries) {
    fuzz::require(paths.insert(entry.path).second, "a path comes once");
    fuzz::require(manifest->find(entry.path) == &entry, "every entry is found");
    fuzz::require(entry.kind == EntryKind::link || (entry.mode & ~mode_t{0755}) == 0, "modes are harmless");
    if (entry.kind == EntryKind::folder) folders.insert(entry.path);
    if (entry.path == bundleItself) continue;
    requirePathInside(entry.path);
    fuzz::require(folders.contains(folderOf(entry.path)), "an entry's folder comes before it");
  }
  fuzz::require(folders.contains(std::string(bundleItself)), "the bundle itself is listed");
  return 0;
}
