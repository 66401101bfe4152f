#include "kit/NSBundle+Kelto.h"

#include <algorithm>

#include "foundation/text/Path.h"

namespace NSBundle::Kelto {
namespace {

using foundation::PropertyList::Array;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;

constexpr std::string_view fallbackScheme = "kelto";
constexpr std::string_view preReleasePrefix = "kelto-";

// The slots of the process.
struct DisplayName {
  std::string text;
};
struct InteropURLScheme {
  std::string text;
};

// The slot of type T, filled by the first caller.
template <class T, class Compute>
std::string onceInProcess(foundation::ProcessScope& process, Compute compute) {
  return process.once<T>([&] { return std::make_shared<T>(T{compute()}); })->text;
}

constexpr char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

const Value* valueForKey(const Dictionary& dictionary, std::string_view key) {
  const auto place = dictionary.find(key);
  return place == dictionary.end() ? nullptr : &place->second;
}

const Array* listForKey(const Dictionary& dictionary, std::string_view key) {
  const Value* value = valueForKey(dictionary, key);
  return value == nullptr ? nullptr : value->as<Array>();
}

const Array* schemesOf(const platform::Bundle& bundle) {
  const Array* types = listForKey(bundle.infoDictionary(), "CFBundleURLTypes");
  const auto* first = types == nullptr || types->empty() ? nullptr : types->front().as<Dictionary>();
  return first == nullptr ? nullptr : listForKey(*first, "CFBundleURLSchemes");
}

std::string chosenScheme(const platform::Bundle& bundle) {
  const bool isRelease = buildType(bundle) == KTBuildType::release;
  if (const Array* schemes = schemesOf(bundle))
    for (const Value& scheme : *schemes) {
      const auto* text = scheme.as<std::string>();
      if (text != nullptr && (isRelease ? *text == fallbackScheme : text->starts_with(preReleasePrefix))) return *text;
    }
  return std::string(fallbackScheme);
}

std::string nameOf(const platform::Bundle& bundle) {
  for (const auto* key : {"CFBundleDisplayName", "CFBundleName"})
    if (auto name = bundle.infoString(key).value_or(""); !name.empty()) return name;
  return foundation::Path::deletingExtension(foundation::Path::lastComponent(bundle.bundlePath()));
}

}  // namespace

std::string displayName(const platform::Bundle& bundle, foundation::ProcessScope& process) {
  return onceInProcess<DisplayName>(process, [&] { return nameOf(bundle); });
}

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

std::string interopURLScheme(const platform::Bundle& bundle, foundation::ProcessScope& process) {
  return onceInProcess<InteropURLScheme>(process, [&] { return chosenScheme(bundle) + "://"; });
}

bool canQueryForScheme(const platform::Bundle& bundle, std::string_view scheme) {
  const Array* schemes = listForKey(bundle.infoDictionary(), "LSApplicationQueriesSchemes");
  return schemes != nullptr && std::ranges::any_of(*schemes, [scheme](const Value& value) {
           const auto* text = value.as<std::string>();
           return text != nullptr && *text == scheme;
         });
}

const Value* appStoreID(const platform::Bundle& bundle) { return valueForKey(bundle.infoDictionary(), "KTAppStoreID"); }

}  // namespace NSBundle::Kelto
