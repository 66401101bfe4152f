#include "cli/Results.h"

#include <cstdio>
#include <variant>

#include "cli/JSON.h"
#include "foundation/text/Harmless.h"

namespace cli {
namespace {

namespace PropertyList = foundation::PropertyList;

std::string textOf(const PropertyList::Value& value) {
  if (const auto* text = value.as<std::string>()) return foundation::harmless(*text);
  if (const auto* flag = value.as<bool>()) return *flag ? "yes" : "no";
  if (const auto* date = value.as<foundation::Date>()) return PropertyList::dateText(*date);
  if (const auto* values = value.as<PropertyList::Array>()) {
    std::string text;
    for (const auto& each : *values) text += (text.empty() ? "" : ", ") + textOf(each);
    return text;
  }
  return jsonOf(value);
}

std::string indented(const Dictionary& values, const std::string& margin) {
  std::string lines;
  for (const auto& [key, value] : values) {
    const auto* inner = value.as<Dictionary>();
    lines += margin + key + ":" + (inner != nullptr ? "\n" : " " + textOf(value) + "\n");
    if (inner != nullptr) lines += indented(*inner, margin + "  ");
  }
  return lines;
}

}  // namespace

std::string linesOf(const Dictionary& values) { return indented(values, ""); }

void print(const Dictionary& values, bool asJSON) {
  const auto text = asJSON ? jsonOf(values) + "\n" : linesOf(values);
  std::fwrite(text.data(), 1, text.size(), stdout);
}

std::string versionOf(const platform::Bundle& bundle) {
  const auto version = bundle.infoString("CFBundleShortVersionString");
  return version ? *version : bundle.infoString("CFBundleVersion").value_or("");
}

}  // namespace cli
