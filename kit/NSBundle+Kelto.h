#pragma once
// Answers about an application bundle from its information property list. Reading only; any thread.
#include <string>
#include <string_view>

#include "foundation/runtime/ProcessScope.h"
#include "platform/Bundle.h"

enum class KTBuildType { release = 0, alpha = 1, beta = 2, development = 3 };

namespace NSBundle::Kelto {

// The first of "CFBundleDisplayName", "CFBundleName" and the bundle's file name without its extension that is not empty. A
// process has one display name: the first call keeps its answer in `process`, and every later call, on any bundle, returns
// it.
std::string displayName(const platform::Bundle& bundle, foundation::ProcessScope& process);

// From "KTBuildType": the first of "alpha", "beta" and "dev" that its text holds, ignoring case; otherwise a release.
KTBuildType buildType(const platform::Bundle& bundle);
// "RELEASE", "ALPHA", "BETA" or "DEVELOPMENT".
std::string_view buildTypeName(const platform::Bundle& bundle);

// The application's own scheme, such as "kelto://". Of the schemes of the first entry of "CFBundleURLTypes", a release
// takes "kelto" and any other build the first that begins with "kelto-"; without a match it is "kelto". One for the
// process, like the display name.
std::string interopURLScheme(const platform::Bundle& bundle, foundation::ProcessScope& process);
// True if "LSApplicationQueriesSchemes" is a list that holds exactly this text.
bool canQueryForScheme(const platform::Bundle& bundle, std::string_view scheme);

// The value under "KTAppStoreID", of any type, or nullptr. Owned by the bundle.
const foundation::PropertyList::Value* appStoreID(const platform::Bundle& bundle);

}  // namespace NSBundle::Kelto
