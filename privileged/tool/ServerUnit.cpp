#include "privileged/tool/ServerUnit.h"

#include <algorithm>
#include <array>

namespace AssistantTool {
namespace {

bool isOneOf(std::string_view value, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, value) != words.end();
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }
bool isCapital(char character) { return (character >= 'A' && character <= 'Z') || character == '_'; }
bool isPlain(char character) {
  return isDigit(character) || (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         std::string_view("._/-").find(character) != std::string_view::npos;
}

bool isType(std::string_view value) { return isOneOf(value, {"simple", "exec", "notify"}); }
bool isRestart(std::string_view value) { return isOneOf(value, {"no", "on-failure", "always"}); }
bool isAnswer(std::string_view value) { return isOneOf(value, {"yes", "no"}); }
bool isSeconds(std::string_view value) {
  return !value.empty() && value.size() <= 3 && std::ranges::all_of(value, isDigit);
}
// Only variables of ours: others change how any program is loaded and run.
bool isVariable(std::string_view value) {
  const auto equals = value.find('=');
  if (equals == std::string_view::npos || value.size() > 255 || !value.starts_with("KELTO_")) return false;
  auto setting = value.substr(equals + 1);
  if (setting.starts_with("%t")) setting.remove_prefix(2);  // the folder of what lasts until the next start
  return std::ranges::all_of(value.substr(0, equals), isCapital) && std::ranges::all_of(setting, isPlain);
}

struct Setting {
  std::string_view section;
  std::string_view key;
  bool (*isPermitted)(std::string_view value);
  std::string_view standard;  // when the bundle offers none; empty for none
};
constexpr std::array<Setting, 7> settings{{{"[Unit]", "DefaultDependencies", isAnswer, ""},
                                           {"[Service]", "Type", isType, "simple"},
                                           {"[Service]", "Restart", isRestart, "on-failure"},
                                           {"[Service]", "RestartSec", isSeconds, "2"},
                                           {"[Service]", "TimeoutStartSec", isSeconds, ""},
                                           {"[Service]", "TimeoutStopSec", isSeconds, ""},
                                           {"[Service]", "Environment", isVariable, ""}}};

std::string_view takeLine(std::string_view& text) {
  const auto line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(text.size(), line.size() + 1));
  return line;
}

// The value of `key` in `section`: the last one, as the service manager reads it; empty for none.
std::string_view valueOf(std::string_view text, std::string_view section, std::string_view key) {
  std::string_view value;
  for (std::string_view current; !text.empty();) {
    const auto line = takeLine(text);
    if (line.starts_with('[')) current = line;
    if (current == section && line.starts_with(key) && line.substr(key.size()).starts_with('='))
      value = line.substr(key.size() + 1);
  }
  return value;
}

std::string settingsOf(std::string_view section, std::string_view offered) {
  std::string lines;
  for (const auto& setting : settings) {
    if (setting.section != section) continue;
    auto value = valueOf(offered, section, setting.key);
    if (!setting.isPermitted(value)) value = setting.standard;
    if (!value.empty()) lines += std::string(setting.key) + "=" + std::string(value) + "\n";
  }
  return lines;
}

// The service manager leaves keys alone that begin like this.
constexpr std::string_view identifierKey = "X-KeltoBundle";
constexpr std::string_view versionKey = "X-KeltoVersion";
constexpr std::string_view signedKey = "X-KeltoSigned";

std::string line(std::string_view key, std::string_view value) {
  return value.empty() ? "" : std::string(key) + "=" + std::string(value) + "\n";
}

}  // namespace

std::string serverUnitFor(std::string_view offered, const BundleIdentity& bundle,
                          const protocol::Branding::Server& server) {
  return "[Unit]\n" + line("Description", server.name) + settingsOf("[Unit]", offered) +
         line(identifierKey, bundle.identifier) + line(versionKey, bundle.version) +
         line(signedKey, bundle.isSigned ? "yes" : "no") + "\n[Service]\nExecStart=\"" + libraryFolderPath + "/" +
         server.program + "\"\n" + settingsOf("[Service]", offered) + "\n[Install]\nWantedBy=multi-user.target\n";
}

std::optional<BundleIdentity> bundleNamedIn(std::string_view unit) {
  const auto named = [unit](std::string_view key) { return std::string(valueOf(unit, "[Unit]", key)); };
  BundleIdentity bundle{.identifier = named(identifierKey), .version = named(versionKey), .key = {}};
  if (bundle.identifier.empty()) return std::nullopt;
  bundle.isSigned = named(signedKey) == "yes";
  return bundle;
}

}  // namespace AssistantTool
