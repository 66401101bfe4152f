#pragma once
// The replaced bundles that can be returned to (see protocol/KeptBundles.h). Any thread.
#include <string>
#include <vector>

namespace platform::Linux {

// The bundles that were kept when the application with this identifier was replaced in the folder of `installed`, newest
// first: root's, then this user's own. A bundle that this user may not see is left out.
std::vector<std::string> keptBundlesOf(const std::string& installed, const std::string& identifier);

}  // namespace platform::Linux
