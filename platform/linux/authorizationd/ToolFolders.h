#pragma once
// The folders whose programs are tools: the administrator's list, and whether a file lies in one of them.
#include <sys/types.h>

#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "protocol/PolicyFile.h"

namespace platform::Linux::authorizationd {

// The folder at a plain absolute path, opened component by component without following links. Each component belongs to
// root or to `trusted`, and nobody else can write it; above the last one a sticky folder will do, in which nobody can move
// or remove what belongs to another. None, with errno or `cause` saying why, otherwise.
posix::Descriptor openTrustedFolder(const std::string& path, uid_t trusted, std::string& cause);

// The policy in the file at `path`: the defaults when there is none, the strictest policy, with `cause`, when the file or
// its folder can be written by anybody but root or `trusted`, or when the file is wrong.
protocol::Policy readPolicy(const std::string& path, uid_t trusted, std::string& cause);

// Why the program that `tool` is open on is not one of the tools in these folders, or "". It must lie directly in one of
// them under the name by which it was opened, belong to root or `trusted`, and be writable by nobody else.
std::string objectionAsTool(int tool, const std::vector<std::string>& folders, uid_t trusted);

}  // namespace platform::Linux::authorizationd
