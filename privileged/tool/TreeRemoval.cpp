#include "privileged/tool/TreeRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "privileged/tool/Failure.h"
#include "privileged/tool/TreeWalk.h"

namespace AssistantTool {
namespace {

// A user's own folder may lack the rights that emptying it needs.
posix::Descriptor openFolderToEmpty(int parent, const std::string& name) {
  auto folder = openFolderIn(parent, name);
  struct stat status {};
  if (!folder || ::geteuid() == 0 || ::fstat(folder.get(), &status) != 0) return folder;
  if ((status.st_mode & S_IRWXU) != S_IRWXU) ::fchmod(folder.get(), (status.st_mode & ALLPERMS) | S_IRWXU);
  return folder;
}

class Remover final : public TreeVisitor {
 public:
  posix::Descriptor arrive(int parent, const FolderEntry& entry) override {
    if (::unlinkat(parent, entry.name.c_str(), 0) == 0 || errno == ENOENT) return {};
    auto folder = openFolderToEmpty(parent, entry.name);
    if (!folder) _isComplete = false;
    return folder;
  }
  void leave(int parent, const std::string& name, int /*folder*/) override {
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0) _isComplete = false;
  }
  void cannotList() override { _isComplete = false; }
  [[nodiscard]] bool isComplete() const { return _isComplete; }

 private:
  bool _isComplete = true;
};

}  // namespace

bool removeTree(int parent, const std::string& name) {
  Remover remover;
  try {
    walkTree(parent, name, remover, anyNumberOfEntries);
  } catch (const Failure&) {
    return false;
  }
  return remover.isComplete();
}

bool emptyFolder(int folder) {
  bool complete = true;
  try {
    for (const auto& entry : entriesOf(folder)) complete = removeTree(folder, entry.name) && complete;
  } catch (const Failure&) {
    return false;
  }
  return complete;
}

}  // namespace AssistantTool
