#include "app/Branding.h"

namespace {

// nullopt for a value that is not a string.
std::optional<protocol::BrandingValues> valuesOf(const foundation::PropertyList::Dictionary& dictionary,
                                                 std::string& cause) {
  protocol::BrandingValues values;
  for (const auto& [key, value] : dictionary) {
    const auto* text = value.as<std::string>();
    if (text == nullptr) {
      cause = "the value of " + key + " is not a string";
      return std::nullopt;
    }
    values.emplace(key, *text);
  }
  return values;
}

std::optional<protocol::Branding> brandingIn(const std::string& bytes, std::string& cause) {
  const auto value = foundation::PropertyList::parse(bytes, &cause);
  if (!value) return std::nullopt;
  const auto* dictionary = value->as<foundation::PropertyList::Dictionary>();
  cause = "it is not a dictionary";
  const auto values = dictionary != nullptr ? valuesOf(*dictionary, cause) : std::nullopt;
  return values ? protocol::brandingOf(*values, cause) : std::nullopt;
}

}  // namespace

std::optional<protocol::Branding> brandingOf(const platform::Platform& platform, platform::Failure& failure) {
  const auto& bundle = platform.bundles.mainBundle();
  const auto path = bundle.pathForResource("Branding", "plist");
  if (!path) return protocol::Branding();
  failure = {platform::Ending::badArguments, "read the brand", *path, "it cannot be read"};
  const auto bytes = platform.fileManager.contentsAtPath(*path);
  auto branding = bytes ? brandingIn(*bytes, failure.cause) : std::nullopt;
  if (!branding || branding->identifier == bundle.bundleIdentifier()) return branding;
  failure.cause = "its Identifier is " + branding->identifier + ", but the bundle's is " +
                  bundle.bundleIdentifier().value_or("missing");
  return std::nullopt;
}
