#pragma once
// What kind of build an application bundle is, from its information property list. Any thread.
#include <string_view>

#include "platform/Bundle.h"

enum class KTBuildType { release = 0, alpha = 1, beta = 2, development = 3 };

namespace NSBundle::Kelto {

// From "KTBuildType": the first of "alpha", "beta" and "dev" that its text holds, case ignored; a release otherwise.
KTBuildType buildType(const platform::Bundle& bundle);
// "RELEASE", "ALPHA", "BETA" or "DEVELOPMENT".
std::string_view buildTypeName(const platform::Bundle& bundle);

}  // namespace NSBundle::Kelto
