#pragma once
// One job: what it may do, what it was asked, and what came of it.
#include <functional>
#include <string>

#include "privileged/tool/PathWalk.h"
#include "privileged/tool/TreeWalk.h"
#include "protocol/InstructionArchive.h"

namespace AssistantTool {

struct Request {
  const InstructionArchive::Instructions& instructions;
  const PathWalk& walk;
  TreeBounds bounds{};  // of the trees that the job goes through

  // The item named by the value of `key`. Throws Failure when the key is missing or the path refused.
  [[nodiscard]] Location locate(const char* key) const;
};

struct Outcome {
  std::string report;  // one line for the log
  std::string output;  // for the caller's output file
  // What is done when the caller already knows: deleting what the job replaced, which can take long on a slow disk. Returns
  // a warning when something of it is left, else nothing; the next job in that folder tries again.
  std::function<std::string()> afterwards;
};

}  // namespace AssistantTool
