#pragma once
// The effects of a job outside the program. Tests put others in their place, to try the handling of instructions with any
// input and without effect.
#include <functional>
#include <memory>
#include <string>

#include "privileged/tool/Answer.h"
#include "privileged/tool/Commands.h"
#include "privileged/tool/JobRecord.h"

namespace AssistantTool {

struct Effects {
  Rules rules;
  // Both throw Failure with everything as it was.
  std::function<std::unique_ptr<Answer>(const std::string& path, const PathWalk& walk)> openAnswer;
  std::function<Outcome(const Command& command, const Request& request)> perform;
  std::function<void(const JobRecord& record)> record;
};

// Reads the administrators' policy, and does each job with no more rights than it needs.
Effects effectsOnThisMachine();

}  // namespace AssistantTool
