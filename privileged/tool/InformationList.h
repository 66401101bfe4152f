#pragma once
// Strings in a property list: the identifier and the version in a bundle's Contents/Info.plist, for bundles without a
// manifest, and a brand. Only property lists in XML are read, and only as far as these need: the tool links no parser of
// property lists.
//
// Pure; any thread; total, and bounded by maximumInformationListBytes.
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace AssistantTool {

inline constexpr std::size_t maximumInformationListBytes = std::size_t{1} << 20;
inline constexpr const char* informationListPath = "Contents/Info.plist";

struct BundleInformation {
  std::optional<std::string> identifier;  // CFBundleIdentifier
  std::optional<std::string> version;     // CFBundleVersion
};

// The strings of these keys in the outermost dictionary; a key that is missing there is missing here. Throws Failure for
// anything that another reader could take for other values: a binary list, malformed XML, a key that comes twice, a CDATA
// section, a reference in a key or in one of the strings.
std::map<std::string, std::string, std::less<>> stringsOf(std::string_view propertyList,
                                                          std::span<const std::string_view> keys);

BundleInformation bundleInformationOf(std::string_view propertyList);

}  // namespace AssistantTool
