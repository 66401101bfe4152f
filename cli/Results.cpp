#include "cli/Results.h"

#include <cstdio>
#include <sstream>
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

Dictionary valuesOfLines(const std::string& lines) {
  Dictionary values;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    if (const auto colon = line.find(": "); colon != std::string::npos)
      values.insert_or_assign(line.substr(0, colon), line.substr(colon + 2));
  }
  return values;
}

std::string causeOfHelper(const std::string& lines) {
  std::string text = lines;
  while (text.ends_with('\n')) text.pop_back();
  text = text.substr(text.rfind('\n') + 1);
  const auto colon = text.find(": ");
  if (text.empty()) return "the program that looks at it ended without a word";
  return colon == std::string::npos ? text : text.substr(colon + 2);
}

std::string versionOf(const platform::Bundle& bundle) {
  const auto version = bundle.infoString("CFBundleShortVersionString");
  return version ? *version : bundle.infoString("CFBundleVersion").value_or("");
}

}  // namespace cli
