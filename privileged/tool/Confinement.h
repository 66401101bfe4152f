#pragma once
// Bounds a file job to the folders that it works in, where the kernel has Landlock: a fault, or a path that slipped through
// every other check, then reaches nothing else. Files that are open already stay usable, and a folder stays allowed when it
// gets another name.
#include <span>
#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/Commands.h"

namespace AssistantTool {

// The open folders in which the job reads and writes: those that hold the items it was given, and those of the Trash when
// something goes there. Throws Failure when a path is refused.
std::vector<posix::Descriptor> foldersOf(const Command& command, const Request& request);

// From now on this process opens, makes, renames and removes files below these folders only, and reads those of the system
// that a job looks at; it runs programs from those only, if any. "", or why the kernel cannot do this; then nothing has
// changed.
enum class Programs { areRefused, areRun };
std::string confineTo(std::span<const posix::Descriptor> folders, Programs programs = Programs::areRefused);

}  // namespace AssistantTool
