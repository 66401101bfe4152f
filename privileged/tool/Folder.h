#pragma once
// Single steps in folders that are held open: what the rest of the tool builds its work from. Nothing here follows a link
// or goes from one file system to another.
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "posix/Descriptor.h"

namespace AssistantTool {

struct FolderEntry {
  std::string name;
  bool isFolder = false;  // or may be one: some file systems do not tell
};

// All entries but "." and "..", read before the caller changes anything; nullopt when there are more than `maximum`. Throws
// Failure.
std::optional<std::vector<FolderEntry>> entriesOf(int folder, std::size_t maximum);
std::vector<FolderEntry> entriesOf(int folder);

// Opens the folder `name` in `parent` for reading. Not open, with errno set, when it is not a folder, or is a link or
// a mount.
posix::Descriptor openFolderIn(int parent, const std::string& name);

// Renames and never overwrites, also on a file system that has no such rename. 0 or an error number; EEXIST when something
// is there, EXDEV when the two folders cannot exchange names.
int renameWithoutReplacing(int fromFolder, const std::string& from, int toFolder, const std::string& to);

// The kernel's facts about an open item. Throws Failure.
struct stat statusOf(int descriptor);

// The text of the link `name`; empty, with errno set, when there is no item of that name or it is not a link. Throws
// Failure when the link cannot be read: its text may decide what is put back and what is removed.
std::string linkTargetOf(int folder, const std::string& name);

// "/proc/self/fd/N": the open file itself, for calls that know paths only.
std::string pathOfDescriptor(int descriptor);

// Brings a folder's own entries to the disk. Throws Failure.
void syncFolder(int folder);

}  // namespace AssistantTool
