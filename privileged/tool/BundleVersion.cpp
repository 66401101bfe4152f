#include "privileged/tool/BundleVersion.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <tuple>

namespace AssistantTool {
namespace {

constexpr std::size_t maximumNumbers = 8;
constexpr std::size_t maximumDigits = 18;  // fits into 64 bits

struct Version {
  std::array<std::uint64_t, maximumNumbers> numbers{};
  char letter = '\0';
};

bool isLetter(char character) { return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z'); }

// Takes a number from the beginning of `text`.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
  const auto length = static_cast<std::size_t>(end - text.begin());
  if (error != std::errc() || length > maximumDigits) return std::nullopt;
  text.remove_prefix(length);
  return number;
}

std::optional<Version> versionOf(std::string_view text) {
  Version version;
  if (!text.empty() && isLetter(text.back())) {
    version.letter = text.back();
    text.remove_suffix(1);
  }
  for (auto& place : version.numbers) {
    const auto number = takeNumber(text);
    if (!number) return std::nullopt;
    place = *number;
    if (text.empty()) return version;
    if (text.front() != '.') return std::nullopt;
    text.remove_prefix(1);
  }
  return std::nullopt;
}

}  // namespace

bool isBundleVersion(std::string_view text) { return versionOf(text).has_value(); }

std::optional<std::strong_ordering> compareVersions(std::string_view one, std::string_view other) {
  const auto first = versionOf(one);
  const auto second = versionOf(other);
  if (!first || !second) return std::nullopt;
  return std::tie(first->numbers, first->letter) <=> std::tie(second->numbers, second->letter);
}

}  // namespace AssistantTool
