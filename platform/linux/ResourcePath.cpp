#include "platform/linux/ResourcePath.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace platform::Linux {
namespace {

// A folder as a part of a path list, in which a colon parts the folders and cannot be escaped: where its own path has one,
// the name that it has among this process's open files.
std::string partOfPathList(const std::string& folder) {
  if (folder.find(':') == std::string::npos) return folder;
  const int descriptor = ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);  // open as long as the process runs
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(descriptor);
}

}  // namespace

void putResourcesFirstOnPath(const platform::Bundle& bundle) {
  constexpr const char* standardPath = "/usr/local/bin:/usr/bin:/bin";
  const char* before = std::getenv("PATH");
  const std::string original = before == nullptr ? standardPath : before;
  setenv("KELTO_ORIGINAL_PATH", original.c_str(), 1);
  setenv("PATH", (partOfPathList(bundle.bundlePath() + "/Contents/Resources") + ":" + original).c_str(), 1);
}

}  // namespace platform::Linux
