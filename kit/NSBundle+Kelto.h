#pragma once
// What an application bundle says about itself in its information property list. Reading only; any thread.
#include <string>
#include <string_view>

#include "platform/Bundle.h"

enum class KTBuildType { release = 0, alpha = 1, beta = 2, development = 3 };

namespace NSBundle::Kelto {

// "CFBundleDisplayName", else "CFBundleName", else the bundle's file name without its extension: the first that is not
// empty. The process has one display name: the bundle that is asked first gives it, and every later call, on any bundle,
// returns it.
std::string displayName(const platform::Bundle& bundle);

// From "KTBuildType": the first of "alpha", "beta" and "dev" that its text holds, case ignored; a release otherwise.
KTBuildType buildType(const platform::Bundle& bundle);
// "RELEASE", "ALPHA", "BETA" or "DEVELOPMENT".
std::string_view buildTypeName(const platform::Bundle& bundle);

// The application's own scheme, such as "kelto://": of the schemes of the first entry of "CFBundleURLTypes", a release
// takes "kelto" and any other build the first that begins with "kelto-"; "kelto" when there is none. One for the process,
// like the display name.
std::string interopURLScheme(const platform::Bundle& bundle);
// True when "LSApplicationQueriesSchemes" is a list that has exactly this text.
bool canQueryForScheme(const platform::Bundle& bundle, std::string_view scheme);

// What stands under "KTAppStoreID", of whatever type; nullptr when nothing does. Owned by the bundle.
const foundation::PropertyList::Value* appStoreID(const platform::Bundle& bundle);

}  // namespace NSBundle::Kelto
