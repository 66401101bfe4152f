#pragma once
// The version of a bundle, for comparing: one to eight numbers with dots between them and at most one letter at the end,
// such as "4.2.1234b". Missing numbers count as 0, and a letter comes after none: 4.2 = 4.2.0 < 4.2.0a < 4.2.1.
#include <compare>
#include <optional>
#include <string_view>

namespace AssistantTool {

bool isBundleVersion(std::string_view text);

// nullopt when one of the two is not such a version.
std::optional<std::strong_ordering> compareVersions(std::string_view one, std::string_view other);

}  // namespace AssistantTool
