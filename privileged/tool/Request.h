#pragma once
// One job: what it may do, what it was asked, and what came of it.
#include <functional>
#include <optional>
#include <string>

#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/PathWalk.h"
#include "privileged/tool/TreeWalk.h"
#include "protocol/InstructionArchive.h"
#include "protocol/PolicyFile.h"

namespace AssistantTool {

// The limits that this machine's administrators set.
struct Rules {
  protocol::Policy policy;
  // The caller's session holds the right to run any program, which an administrator gave it.
  bool hasAnyProgramRight = false;

  [[nodiscard]] TreeBounds bounds() const {
    TreeBounds bounds;
    bounds.entries = policy.maximumEntries;
    return bounds;
  }
  [[nodiscard]] SignaturePolicy signatures() const {
    return {.unsignedBundles = policy.unsignedBundles,
            .areDowngradesAllowed = policy.areDowngradesAllowed,
            .isUnsignedGranted = hasAnyProgramRight};
  }
};

// The bundles of a job, as it gets to know them; for the log, also when it fails afterwards.
struct Bundles {
  std::optional<BundleIdentity> installed;
  std::optional<BundleIdentity> replacement;
};

struct Request {
  const InstructionArchive::Instructions& instructions;
  const PathWalk& walk;
  const Rules& rules;
  Bundles& bundles;
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
  // The job is done, but not a consequence that it should have had; goes to the log with the report, as a warning.
  std::string warning{};
};

}  // namespace AssistantTool
