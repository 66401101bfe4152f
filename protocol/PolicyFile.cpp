#include "protocol/PolicyFile.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace protocol {

namespace {

constexpr const char* blanks = " \t";

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool isPrintable(std::string_view line) {
  return std::all_of(line.begin(), line.end(),
                     [](char character) { return (character >= ' ' && character <= '~') || character == '\t'; });
}

// "/a/b": no empty component, no "." and no "..".
bool isPlainPath(std::string_view path) {
  if (path.size() < 2 || path.front() != '/' || path.back() == '/') return false;
  while (!path.empty()) {
    path.remove_prefix(1);
    const auto component = path.substr(0, path.find('/'));
    if (component.empty() || component == "." || component == "..") return false;
    path.remove_prefix(component.size());
  }
  return true;
}

class Reader {
 public:
  // Why the line is refused, or nullptr.
  const char* read(std::string_view line) {
    if (!isPrintable(line)) return "a character that is not printable ASCII";
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return nullptr;
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) return "a line without \"=\"";
    return assign(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
  }
  Policy policy;

 private:
  const char* assign(std::string_view key, std::string_view value) {
    if (key == "tools") return addFolder(key, policy.tools, value);
    if (key == "session-tools") return addFolder(key, policy.sessionTools, value);
    if (key == "locations") return addLocation(key, value);
    if (isSeen(key)) return "a key that stands twice";
    _seen.emplace_back(key);
    if (key == "unsigned") return setUnsigned(value);
    if (key == "downgrades") return setDowngrades(value);
    if (key == "keep") return setNumber(policy.keptVersions, value, 0, maximumKeptVersions);
    if (key == "maximum-entries") return setNumber(policy.maximumEntries, value, 1, maximumEntriesEver);
    return "an unknown key";
  }

  // The first folder of a list takes the place of the default.
  const char* addFolder(std::string_view key, std::vector<std::string>& folders, std::string_view value) {
    if (!isPlainPath(value)) return "not the plain absolute path of a folder";
    if (!isSeen(key)) {
      folders.clear();
      _seen.emplace_back(key);
    }
    if (folders.size() >= maximumListedFolders) return "too many folders";
    folders.emplace_back(value);
    return nullptr;
  }

  const char* addLocation(std::string_view key, std::string_view value) {
    if (!policy.locations) policy.locations.emplace();
    return addFolder(key, *policy.locations, value);
  }

  const char* setUnsigned(std::string_view value) {
    using Unsigned = Policy::Unsigned;
    for (const auto& [name, meaning] :
         {std::pair{"refuse", Unsigned::refuse}, {"ask", Unsigned::ask}, {"allow", Unsigned::allow}}) {
      if (value != name) continue;
      policy.unsignedBundles = meaning;
      return nullptr;
    }
    return "neither refuse nor ask nor allow";
  }

  const char* setDowngrades(std::string_view value) {
    if (value != "refuse" && value != "allow") return "neither refuse nor allow";
    policy.areDowngradesAllowed = value == "allow";
    return nullptr;
  }

  static const char* setNumber(std::size_t& number, std::string_view value, std::size_t least, std::size_t most) {
    std::size_t read = 0;
    const char* end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, read);
    if (error != std::errc() || stopped != end || read < least || read > most) return "not a number within its bounds";
    number = read;
    return nullptr;
  }

  [[nodiscard]] bool isSeen(std::string_view key) const {
    return std::find(_seen.begin(), _seen.end(), key) != _seen.end();
  }

  std::vector<std::string> _seen;
};

std::optional<Policy> refused(std::string* cause, std::string why) {
  if (cause != nullptr) *cause = std::move(why);
  return std::nullopt;
}

}  // namespace

Policy strictestPolicy() {
  Policy policy;
  policy.tools.clear();
  policy.sessionTools.clear();
  policy.locations.emplace();
  return policy;
}

std::optional<Policy> parsePolicy(std::string_view text, std::string* cause) {
  if (text.size() > maximumPolicyFileBytes) return refused(cause, "the file is too long");
  Reader reader;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const auto line = text.substr(0, text.find('\n'));
    if (const char* why = reader.read(line)) return refused(cause, "line " + std::to_string(number) + ": " + why);
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  return reader.policy;
}

}  // namespace protocol
