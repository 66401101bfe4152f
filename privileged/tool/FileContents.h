#pragma once
// The contents of one file into another, by the fastest way that the two file systems offer.
#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace AssistantTool {

// Remembers over the files of one tree which ways do not work between its two file systems.
class FileContents {
 public:
  // `target` is empty and open for writing, `status` the source's. `name` is for the Failure thrown when it does not work.
  void copy(int source, int target, const struct stat& status, const std::string& name);

 private:
  bool shareBlocks(int source, int target);
  void copyData(int source, int target, off_t begin, off_t end, const std::string& name);
  // Bytes copied, 0 at the source's end, -1 with errno set.
  ssize_t copySome(int source, int target, off_t at, std::size_t length);
  ssize_t readAndWrite(int source, int target, off_t at, std::size_t length);

  bool _canShareBlocks = true;
  bool _canCopyRanges = true;
  std::vector<char> _buffer;
};

enum class AccessLists { copied, left };

// User extended attributes and, when asked, access lists. Throws Failure; a target that knows no attributes goes without.
void copyExtendedAttributes(int source, int target, const std::string& name, AccessLists accessLists);

}  // namespace AssistantTool
