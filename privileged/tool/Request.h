#pragma once
// One job: what it may do, what it was asked, and what came of it.
#include <functional>
#include <string>

#include "privileged/InstructionArchive.h"
#include "privileged/tool/PathWalk.h"

namespace AssistantTool {

struct Request {
  const InstructionArchive::Instructions& instructions;
  const PathWalk& walk;

  // The item named by the value of `key`. Throws Failure when the key is missing or the path refused.
  [[nodiscard]] Location locate(const char* key) const;
};

struct Outcome {
  std::string report;  // one line for the log
  std::string output;  // for the caller's output file
  // What is done after the verdict: deleting what the job replaced. Returns a remark for the log, or empty.
  std::function<std::string()> afterwards;
};

}  // namespace AssistantTool
