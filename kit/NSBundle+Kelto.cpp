#include "kit/NSBundle+Kelto.h"

#include <algorithm>

namespace NSBundle::Kelto {
namespace {

constexpr char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

KTBuildType buildType(const platform::Bundle& bundle) {
  auto text = bundle.infoString("KTBuildType").value_or("");
  std::ranges::transform(text, text.begin(), lowered);
  if (text.find("alpha") != std::string::npos) return KTBuildType::alpha;
  if (text.find("beta") != std::string::npos) return KTBuildType::beta;
  if (text.find("dev") != std::string::npos) return KTBuildType::development;
  return KTBuildType::release;
}

std::string_view buildTypeName(const platform::Bundle& bundle) {
  constexpr std::string_view names[] = {"RELEASE", "ALPHA", "BETA", "DEVELOPMENT"};
  return names[static_cast<int>(buildType(bundle))];
}

}  // namespace NSBundle::Kelto
