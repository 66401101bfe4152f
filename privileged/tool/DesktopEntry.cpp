#include "privileged/tool/DesktopEntry.h"

#include <algorithm>
#include <array>
#include <set>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Manifest.h"
#include "protocol/Utf8.h"

namespace AssistantTool {
namespace {

constexpr std::string_view entryHead = "[Desktop Entry]";
constexpr std::string_view actionHead = "[Desktop Action ";
constexpr std::string_view markOfBundle = "X-Kelto-Bundle";

enum class ValueKind { application, version, text, names, mediaTypes, actions, flag, command, program, icon };
struct KnownKey {
  std::string_view name;
  ValueKind kind;
  bool isLocalized = false;
  bool isOfActions = false;
};
// None but Exec and TryExec has a program started.
constexpr std::array knownKeys{
    KnownKey{"Type", ValueKind::application},
    KnownKey{"Version", ValueKind::version},
    KnownKey{"Name", ValueKind::text, true, true},
    KnownKey{"GenericName", ValueKind::text, true},
    KnownKey{"Comment", ValueKind::text, true},
    KnownKey{"Keywords", ValueKind::text, true},
    KnownKey{"StartupWMClass", ValueKind::text},
    KnownKey{"Icon", ValueKind::icon, false, true},
    KnownKey{"Exec", ValueKind::command, false, true},
    KnownKey{"TryExec", ValueKind::program},
    KnownKey{"Actions", ValueKind::actions},
    KnownKey{"Categories", ValueKind::names},
    KnownKey{"OnlyShowIn", ValueKind::names},
    KnownKey{"NotShowIn", ValueKind::names},
    KnownKey{"MimeType", ValueKind::mediaTypes},
    KnownKey{"Terminal", ValueKind::flag},
    KnownKey{"NoDisplay", ValueKind::flag},
    KnownKey{"StartupNotify", ValueKind::flag},
    KnownKey{"PrefersNonDefaultGPU", ValueKind::flag},
    KnownKey{"SingleMainWindow", ValueKind::flag},
};

bool isLetterOrDigit(char character) {
  const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
  return isLetter || (character >= '0' && character <= '9');
}

bool isOf(std::string_view text, std::string_view others) {
  const auto isAllowed = [&](char character) {
    return isLetterOrDigit(character) || others.find(character) != std::string_view::npos;
  };
  return !text.empty() && std::ranges::all_of(text, isAllowed);
}

// A text may hold these two escapes, and that of a semicolon where it is a list.
bool isText(std::string_view value) {
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (value[at] != '\\') continue;
    if (++at == value.size() || std::string_view("\\s;").find(value[at]) == std::string_view::npos) return false;
  }
  return !value.empty();
}

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(' ');
  return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> namesIn(std::string_view list) {
  std::vector<std::string> names;
  while (!list.empty()) {
    const auto name = list.substr(0, list.find(';'));
    if (!name.empty()) names.emplace_back(name);
    list.remove_prefix(std::min(name.size() + 1, list.size()));
  }
  return names;
}

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  for (const auto& name : names) list += name + ";";
  return list;
}

}  // namespace

// Reads line by line into the entry.
class DesktopEntryReader {
 public:
  DesktopEntryReader(DesktopEntry& entry, std::string_view text) : _entry(entry), _rest(text) {}

  void read() {
    while (!_rest.empty()) line(nextLine());
    endGroup();
    _line = 0;
    if (!_hasEntry) refuse("no group [Desktop Entry]");
    if (!_announced.empty()) refuse("no group for the action " + *_announced.begin());
  }

 private:
  [[noreturn]] void refuse(const std::string& reason) const {
    throw Failure((_line == 0 ? "" : "line " + std::to_string(_line) + ": ") + reason);
  }
  std::string_view nextLine() {
    ++_line;
    const auto line = _rest.substr(0, _rest.find('\n'));
    _rest.remove_prefix(std::min(line.size() + 1, _rest.size()));
    if (protocol::hasControlCharacter(line)) refuse("a control character");
    return line;
  }
  void line(std::string_view line) {
    if (trimmed(line).empty() || line.starts_with('#')) return;
    if (line.starts_with('[')) return group(trimmed(line));
    const auto equals = line.find('=');
    if (!_hasEntry) refuse("something before the group [Desktop Entry]");
    if (equals == std::string_view::npos) refuse("neither a key with its value nor a group");
    value(std::string(trimmed(line.substr(0, equals))), trimmed(line.substr(equals + 1)));
  }
  void group(std::string_view head) {
    endGroup();
    if (!_hasEntry && head == entryHead) {
      _hasEntry = true;
    } else {
      if (!_hasEntry || !head.starts_with(actionHead) || !head.ends_with(']')) refuse("a group that is not known");
      const auto action = head.substr(actionHead.size(), head.size() - actionHead.size() - 1);
      // The reader of a menu looks for those only that the entry announces, each once.
      if (_announced.erase(std::string(action)) == 0) refuse("a group for an action that the entry does not announce once");
      _isAction = true;
    }
    _entry._lines.push_back({.key = std::string(head)});
  }
  void endGroup() {
    if (!_hasEntry) return;
    if (!_isAction && !_keys.contains("Type")) refuse("a group without the key Type before this line");
    for (const char* key : {"Name", "Exec"})
      if (!_keys.contains(key)) refuse(std::string("a group without the key ") + key + " before this line");
    _keys.clear();
  }
  void value(const std::string& key, std::string_view value) {
    const auto bracket = std::min(key.find('['), key.size());
    const bool isLocalized = bracket < key.size();
    const auto known = std::ranges::find(knownKeys, key.substr(0, bracket), &KnownKey::name);
    const bool isKnown =
        known != knownKeys.end() && (!isLocalized || known->isLocalized) && (!_isAction || known->isOfActions);
    if (!isKnown) refuse("a key that is not allowed: " + printable(key));
    if (isLocalized && (!key.ends_with(']') || !isOf(key.substr(bracket + 1, key.size() - bracket - 2), "@._-")))
      refuse("a malformed language: " + printable(key));
    if (!_keys.insert(key).second) refuse("a key that comes twice: " + printable(key));
    try {
      _entry._lines.push_back(judged(key, known->kind, value));
    } catch (const Failure& failure) {
      refuse(printable(key) + ": " + failure.what());
    }
  }
  DesktopEntry::Line judged(const std::string& key, ValueKind kind, std::string_view value) {
    DesktopEntry::Line line{.key = key, .value = std::string(value)};
    if (kind == ValueKind::command) {
      line.command = desktopCommandOf(value);
      _entry._programs.push_back(line.command->program);
    } else if (kind == ValueKind::program) {
      line.program = desktopProgramOf(value);
      _entry._programs.push_back(*line.program);
    } else if (!isOfKind(kind, value)) {
      throw Failure("not a value of this key");
    }
    if (kind == ValueKind::names || kind == ValueKind::mediaTypes || kind == ValueKind::actions)
      line.value = listOf(namesIn(value));
    if (kind == ValueKind::actions) announce(namesIn(value));
    return line;
  }
  void announce(const std::vector<std::string>& actions) {
    _announced = {actions.begin(), actions.end()};
    if (_announced.size() != actions.size()) throw Failure("an action comes twice");
  }
  static bool isOfKind(ValueKind kind, std::string_view value) {
    switch (kind) {
      case ValueKind::application:
        return value == "Application";
      case ValueKind::flag:
        return value == "true" || value == "false";
      case ValueKind::version:
        return !value.empty() && value.find_first_not_of("0123456789.") == std::string_view::npos;
      case ValueKind::icon:
        return isOf(value, "._-");
      case ValueKind::names:
      case ValueKind::actions:
        return isOf(value, ";-");
      case ValueKind::mediaTypes:
        return isOf(value, ";/.+_-");
      default:
        return isText(value);
    }
  }

  DesktopEntry& _entry;
  std::string_view _rest;
  std::size_t _line = 0;
  bool _hasEntry = false;
  bool _isAction = false;
  std::set<std::string> _keys;       // of this group
  std::set<std::string> _announced;  // actions whose groups are still to come
};

DesktopEntry::DesktopEntry(std::string_view text) {
  if (text.size() > maximumDesktopEntryBytes) throw Failure("too long");
  if (!protocol::isValidUTF8(text)) throw Failure("not UTF-8");
  DesktopEntryReader(*this, text).read();
}

std::string DesktopEntry::installedFor(const std::string& bundle) const {
  // Some menus take a program with an equals sign for a variable.
  if (!protocol::isValidUTF8(bundle) || protocol::hasControlCharacter(bundle) || bundle.find('=') != std::string::npos)
    throw Failure("the bundle's path has characters that no entry can hold");
  std::string text;
  for (const auto& line : _lines) {
    auto value = line.value;
    if (line.command) value = valueOfCommand(*line.command, bundle);
    if (line.program) value = valueOfProgram(*line.program, bundle);
    text += (text.empty() || value ? "" : "\n") + line.key + (value ? "=" + *value : "") + "\n";
    if (&line == &_lines.front()) text += std::string(markOfBundle) + "=" + escapedValue(bundle) + "\n";
  }
  return text;
}

std::optional<std::string> DesktopEntry::bundleNamedBy(std::string_view installedEntry) {
  const auto mark = std::string(entryHead) + "\n" + std::string(markOfBundle) + "=";
  if (!installedEntry.starts_with(mark)) return std::nullopt;
  const auto value = installedEntry.substr(mark.size());
  try {
    return unescapedValue(value.substr(0, value.find('\n')));
  } catch (const Failure&) {
    return std::nullopt;
  }
}

}  // namespace AssistantTool
