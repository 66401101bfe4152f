#include "kit/NSBundle+KeltoVersion.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/text/Scanner.h"
#include "logging/KTLogger.h"
#include "platform/Unicode.h"

namespace NSBundle::Kelto {
namespace {

namespace Unicode = platform::Unicode;

constexpr std::int32_t errorLevel = 3;

std::vector<std::string_view> components(std::string_view version) {
  std::vector<std::string_view> parts;
  for (;;) {
    const auto dot = version.find('.');
    parts.push_back(version.substr(0, dot));
    if (dot == std::string_view::npos) return parts;
    version.remove_prefix(dot + 1);
  }
}

std::string withoutLeadingBlanks(std::string_view text) {
  const std::u16string units = Unicode::utf16(text);
  const auto start = std::ranges::find_if_not(units, Unicode::isWhitespaceOrNewline);
  return Unicode::utf8({start, units.end()});
}

std::uint64_t integerValue(std::string_view component) {
  const std::string text = withoutLeadingBlanks(component);
  std::string_view rest = text;
  return static_cast<std::uint64_t>(foundation::scanInteger(rest).value_or(0));
}

// The run of letters and digits at the start, after blanks.
std::u16string leadingWord(std::string_view text) {
  const std::u16string units = Unicode::utf16(withoutLeadingBlanks(text));
  return {units.begin(), std::ranges::find_if_not(units, Unicode::isAlphanumeric)};
}

void logProblem(const platform::Bundle& bundle, int line, std::string_view format, const std::string& version) {
  KTDiagnostics::log({"NSBundle", &bundle, "appVersion", line}, errorLevel, format, version);
}

}  // namespace

KTAppVersion appVersion(const platform::Bundle& bundle) {
  KTAppVersion result;
  const auto version = bundle.infoString("CFBundleVersion");
  if (!version) return result;
  const auto parts = components(*version);
  result.major = integerValue(parts[0]);
  if (parts.size() > 1) result.minor = integerValue(parts[1]);
  if (parts.size() < 3) return result;

  const std::string third = withoutLeadingBlanks(parts[2]);
  std::string_view rest = third;
  const auto build = foundation::scanInteger(rest);
  if (!build) {
    logProblem(bundle, 132, "Unable to parse build number of version %@", *version);
    return result;
  }
  result.build = static_cast<std::uint64_t>(*build);
  const std::u16string word = leadingWord(rest);
  if (word.size() == 1) result.qfe = word[0];
  if (word.size() > 1) logProblem(bundle, 126, "Unable to parse qfe of version  %@", *version);
  return result;
}

}  // namespace NSBundle::Kelto
