#include "protocol/Branding.h"

#include <algorithm>

#include "protocol/Utf8.h"

namespace protocol {

namespace {

namespace key = brandingKey;

// Longer names of programs, folders and buses are refused by the system; ".Process" and a number are appended to one.
constexpr std::size_t longestName = 200;
constexpr std::size_t longestPath = 1000;

bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') || character == '_';
}
bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string_view takeUntil(std::string_view& rest, char end) {
  const auto taken = rest.substr(0, rest.find(end));
  rest.remove_prefix(std::min(rest.size(), taken.size() + 1));
  return taken;
}

// Strings tables, property lists, formats and units give these a meaning.
bool isName(std::string_view text) {
  if (text.empty() || text.size() > longestName || text.front() == ' ' || text.back() == ' ') return false;
  return std::ranges::none_of(text, [](char character) {
    return isControlCharacter(character) || std::string_view("\"&<>\\%").find(character) != std::string_view::npos;
  });
}

// "com.acme.Editor": at least two parts, none of which is empty or begins with a digit.
bool isIdentifier(std::string_view text) {
  if (text.size() > longestName || text.find('.') == std::string_view::npos || text.back() == '.') return false;
  while (!text.empty()) {
    const auto part = takeUntil(text, '.');
    const auto isAllowed = [](char character) { return isLetter(character) || isDigit(character) || character == '-'; };
    if (part.empty() || isDigit(part.front()) || !std::ranges::all_of(part, isAllowed)) return false;
  }
  return true;
}

// "a/b": no empty part, no "." and no "..", and nothing that a unit would have to escape.
bool isRelativePath(std::string_view text) {
  if (text.empty() || text.size() > longestPath || text.back() == '/') return false;
  const auto isPlain = [](char character) {
    return character >= ' ' && character <= '~' && std::string_view("\"\\%$").find(character) == std::string_view::npos;
  };
  if (!std::ranges::all_of(text, isPlain)) return false;
  while (!text.empty()) {
    const auto part = takeUntil(text, '/');
    if (part.empty() || part == "." || part == ".." || part.size() > longestName) return false;
  }
  return true;
}

bool isAbsolutePath(std::string_view text) { return text.starts_with('/') && isRelativePath(text.substr(1)); }

std::string_view lastPart(std::string_view path) { return path.substr(path.rfind('/') + 1); }

class BrandReader {
 public:
  explicit BrandReader(const BrandingValues& values) : _values(values) {
    for (const auto& [name, value] : values)
      if (std::ranges::find(key::all, name) == key::all.end()) refuse("the key " + name + " is unknown");
  }

  [[nodiscard]] bool has(const char* name) const { return _values.contains(name); }

  std::string take(const char* name, bool (*isAllowed)(std::string_view), const char* expected) {
    const auto place = _values.find(name);
    if (place == _values.end()) return refuse(std::string("the key ") + name + " is missing");
    if (!isAllowed(place->second)) return refuse(std::string("the value of ") + name + " is not " + expected);
    return place->second;
  }
  std::string takeIdentifier(const char* name) {
    return take(name, isIdentifier, "an identifier such as com.example.Editor");
  }
  std::string takeRelativePath(const char* name) { return take(name, isRelativePath, "a plain relative path"); }

  // The first refusal counts.
  std::string refuse(const std::string& cause) {
    if (_cause.empty()) _cause = cause;
    return {};
  }
  [[nodiscard]] const std::string& cause() const { return _cause; }

 private:
  const BrandingValues& _values;
  std::string _cause;
};

constexpr const char* plainName = "a name without control characters and without any of \" & < > \\ %";

std::optional<Branding::Server> serverIn(BrandReader& reader) {
  const auto keys = {key::serverName, key::serverLabel, key::serverProgram, key::serverDefinition, key::serverMarker};
  if (std::ranges::none_of(keys, [&](const char* each) { return reader.has(each); })) return std::nullopt;
  Branding::Server server{.name = reader.take(key::serverName, isName, plainName),
                          .label = reader.takeIdentifier(key::serverLabel),
                          .program = reader.takeRelativePath(key::serverProgram),
                          .definition = reader.takeRelativePath(key::serverDefinition),
                          .marker = reader.take(key::serverMarker, isAbsolutePath, "a plain absolute path")};
  const std::string unit = server.label + ".service";
  const auto program = lastPart(server.program);
  const auto definition = lastPart(server.definition);
  // They lie in one folder of the application's bundle.
  if (program == definition || program == unit || definition == unit)
    reader.refuse("the server's program, definition and unit have the same file name");
  return server;
}

}  // namespace

std::optional<Branding> brandingOf(const BrandingValues& values, std::string& cause) {
  BrandReader reader(values);
  reader.take(key::productName, isName, plainName);
  if (reader.has(key::artwork)) reader.takeRelativePath(key::artwork);
  Branding branding{.identifier = reader.takeIdentifier(key::identifier),
                    .defaultsDomain = reader.takeIdentifier(key::defaultsDomain),
                    .server = serverIn(reader)};
  if (!reader.cause().empty()) {
    cause = reader.cause();
    return std::nullopt;
  }
  return branding;
}

}  // namespace protocol
