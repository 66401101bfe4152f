#pragma once
// The places that the administrators leave to holders of the first right: the key "locations" of the policy.
//
// The bound counts for a job of root's for another user whose session lacks the right to run any program. Such a job
// changes nothing but what lies strictly below a listed folder, with only root able to write each folder from there down:
// so nobody can lay a link or exchange a folder on the way. All else is read with the rights of that user, and taken away
// only where it is the user's. The folders are compared as the tool holds them open, not by their names.
#include <optional>

#include "privileged/tool/Request.h"
#include "privileged/tool/Tree.h"

namespace AssistantTool {

bool isBoundToLocations(const Request& request);

// The item named by the value of `key`, which the job is going to make, exchange or take away. Throws Failure when the
// bound forbids that.
Location locateChanged(const Request& request, const char* key);

struct Source {
  Location item;
  std::optional<Owner> reader;  // the user, when the bound counts and the item lies elsewhere
};
Source locateSource(const Request& request);

// Whether the job may take away what the reader named.
bool mayBeTakenAway(const Location& source, const std::optional<Owner>& reader);

}  // namespace AssistantTool
