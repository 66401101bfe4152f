#include "platform/linux/BundleProgram.h"

#include <unistd.h>

#include <algorithm>

#include "foundation/text/Path.h"
#include "platform/linux/FileManager.h"

namespace platform::Linux {

namespace {

bool isOneComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

bool isInProgramFolder(std::string_view program) {
  return std::any_of(std::begin(programFolders), std::end(programFolders), [&](std::string_view folder) {
    return program.starts_with(folder) && program.size() > folder.size() && program[folder.size()] == '/';
  });
}

}  // namespace

std::optional<std::string> bundleOfProgram(std::string_view path) {
  // Most programs are in no bundle, and are passed over before the disk is asked.
  if (path.find("/Contents/") == std::string_view::npos) return std::nullopt;
  for (std::string folder = foundation::Path::deletingLastComponent(path); folder.size() > 1;
       folder = foundation::Path::deletingLastComponent(folder)) {
    if (::access((folder + "/Contents/Info.plist").c_str(), F_OK) != 0) continue;
    if (!isInProgramFolder(path.substr(folder.size() + 1))) return std::nullopt;
    return folder;
  }
  return std::nullopt;
}

bool isMainExecutable(const platform::Bundle& bundle, std::string_view program) {
  const auto name = bundle.infoString("CFBundleExecutable");
  if (!name) return isInProgramFolder(program);
  return std::any_of(std::begin(programFolders), std::end(programFolders),
                     [&](std::string_view folder) { return program == foundation::Path::appending(folder, *name); });
}

std::optional<std::string> mainExecutableOf(const platform::Bundle& bundle) {
  const auto name = bundle.infoString("CFBundleExecutable");
  if (!name || !isOneComponent(*name)) return std::nullopt;
  for (const auto folder : programFolders) {
    auto path = foundation::Path::appending(foundation::Path::appending(bundle.bundlePath(), folder), *name);
    if (FileManager().isExecutableFileAtPath(path)) return path;
  }
  return std::nullopt;
}

}  // namespace platform::Linux
