#include "privileged/tool/Manifest.h"

#include <sodium.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <limits>

#include "privileged/tool/BundleVersion.h"
#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

constexpr std::string_view formatLine = "kelto-manifest 1";
constexpr mode_t grantedModes = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr mode_t linkMode = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr std::size_t maximumPathBytes = 4095;
constexpr std::size_t maximumNameBytes = 255;
constexpr std::array<EntryKind, 3> kinds{EntryKind::file, EntryKind::folder, EntryKind::link};

bool isPrintable(unsigned char byte) { return byte >= ' ' && byte <= '~' && byte != '%'; }

bool isName(std::string_view name) {
  if (name.empty() || name.size() > maximumNameBytes || name == "." || name == "..") return false;
  return name.find('\0') == std::string_view::npos;
}

bool isPathInBundle(std::string_view path) {
  if (path.size() > maximumPathBytes) return false;
  for (;;) {
    const auto slash = path.find('/');
    if (!isName(path.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    path.remove_prefix(slash + 1);
  }
}

std::string_view folderOf(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? bundleItself : path.substr(0, slash);
}

std::string lineOf(const ManifestEntry& entry) {
  const auto digest = entry.kind == EntryKind::folder ? "-" : hexadecimal(entry.digest);
  return std::string(nameOf(entry.kind)) + " " + octal(entry.mode) + " " + std::to_string(entry.size) + " " + digest + " " +
         printable(entry.path);
}

std::optional<std::string> faultOfEntry(const ManifestEntry& entry) {
  const bool isBundle = entry.path == bundleItself;
  if (!isBundle && !isPathInBundle(entry.path)) return "a path is not valid";
  if (isBundle && entry.kind != EntryKind::folder) return "the bundle itself is not a folder";
  if (entry.path == manifestPath || entry.path == signaturePath) return "the manifest or its signature is listed";
  if (entry.kind == EntryKind::link)
    return entry.mode == linkMode ? std::nullopt : std::optional("a link's mode is not 0777");
  if ((entry.mode & ~grantedModes) != 0) return "others than the owner can write, or a special bit of the mode is set";
  if (entry.kind == EntryKind::folder && entry.size != 0) return "a folder has a size";
  return std::nullopt;
}

// Why `entry` cannot follow those that are in the manifest already.
std::optional<std::string> faultOfPlace(const Manifest& manifest, const ManifestEntry& entry) {
  if (manifest.entries.size() == maximumManifestEntries) return "too many entries";
  if (manifest.entries.empty())
    return entry.path == bundleItself ? std::nullopt : std::optional("the bundle itself is missing");
  if (!comesBefore(manifest.entries.back().path, entry.path)) return "the entries are not sorted, or one comes twice";
  const auto* folder = manifest.find(folderOf(entry.path));
  if (folder == nullptr || folder->kind != EntryKind::folder) return "an entry's folder is not listed";
  return std::nullopt;
}

int valueOfDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

class Parser {
 public:
  explicit Parser(std::string_view bytes) : _rest(bytes) {}

  Manifest parse() {
    if (_rest.size() > maximumManifestBytes) refuse("the manifest is too long");
    if (nextLine() != formatLine) refuse("not a manifest of this format");
    Manifest manifest;
    manifest.identifier = value("identifier ");
    if (!isBundleIdentifier(manifest.identifier)) refuse("not a bundle identifier");
    manifest.version = value("version ");
    if (!isBundleVersion(manifest.version)) refuse("not a version");
    if (_rest.starts_with("previous-key ")) manifest.previousKey = key(value("previous-key "));
    do {
      append(manifest, entryOf(nextLine()));
    } while (!_rest.empty());
    return manifest;
  }

 private:
  [[noreturn]] void refuse(const std::string& reason) const {
    throw Failure("malformed manifest: line " + std::to_string(_line) + ": " + reason);
  }

  std::string_view nextLine() {
    ++_line;
    const auto end = _rest.find('\n');
    if (end == std::string_view::npos) refuse("the manifest ends early");
    const auto line = _rest.substr(0, end);
    _rest.remove_prefix(end + 1);
    return line;
  }

  std::string_view value(std::string_view name) {
    auto line = nextLine();
    if (!line.starts_with(name)) refuse("no \"" + std::string(name.substr(0, name.size() - 1)) + "\"");
    line.remove_prefix(name.size());
    return line;
  }

  [[nodiscard]] Minisign::PublicKey key(std::string_view text) const {
    try {
      return Minisign::publicKeyOfText(text);
    } catch (const Failure& failure) {
      refuse(failure.what());
    }
  }

  void append(Manifest& manifest, ManifestEntry entry) const {
    if (const auto fault = faultOfEntry(entry)) refuse(*fault);
    if (const auto fault = faultOfPlace(manifest, entry)) refuse(*fault);
    manifest.entries.push_back(std::move(entry));
  }

  [[nodiscard]] ManifestEntry entryOf(std::string_view line) const {
    auto rest = line;
    ManifestEntry entry;
    entry.kind = kind(field(rest));
    entry.mode = static_cast<mode_t>(number(field(rest), 8, ALLPERMS));
    entry.size = number(field(rest), 10, std::numeric_limits<std::int64_t>::max());
    const auto digestText = field(rest);
    if (entry.kind != EntryKind::folder) entry.digest = digest(digestText);
    entry.path = path(rest);
    // The same entry in other words: a number with zeros before it, a letter escaped without need.
    if (lineOf(entry) != line) refuse("an entry is not in its one form");
    return entry;
  }

  std::string_view field(std::string_view& rest) const {
    const auto space = rest.find(' ');
    if (space == std::string_view::npos) refuse("an entry ends early");
    const auto text = rest.substr(0, space);
    rest.remove_prefix(space + 1);
    return text;
  }

  [[nodiscard]] EntryKind kind(std::string_view text) const {
    const auto* found = std::ranges::find(kinds, text, nameOf);
    if (found == kinds.end()) refuse("an entry of an unknown kind");
    return *found;
  }

  [[nodiscard]] std::uint64_t number(std::string_view text, int base, std::uint64_t maximum) const {
    std::uint64_t result = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), result, base);
    if (error != std::errc() || end != text.end() || result > maximum) refuse("not a valid number");
    return result;
  }

  [[nodiscard]] Digest digest(std::string_view text) const {
    Digest result{};
    std::size_t length = 0;
    const int error = sodium_hex2bin(result.data(), result.size(), text.data(), text.size(), nullptr, &length, nullptr);
    if (error != 0 || length != result.size()) refuse("not a SHA-256");
    return result;
  }

  [[nodiscard]] std::string path(std::string_view text) const {
    std::string result;
    while (!text.empty()) {
      const bool isEscaped = text.front() == '%';
      result += isEscaped ? escaped(text) : text.front();
      text.remove_prefix(isEscaped ? 3 : 1);
    }
    return result;
  }

  [[nodiscard]] char escaped(std::string_view text) const {
    const int high = text.size() < 3 ? -1 : valueOfDigit(text[1]);
    const int low = text.size() < 3 ? -1 : valueOfDigit(text[2]);
    if (high < 0 || low < 0) refuse("a \"%\" without its two digits");
    return static_cast<char>(high * 16 + low);
  }

  std::string_view _rest;
  std::size_t _line = 0;
};

}  // namespace

const ManifestEntry* Manifest::find(std::string_view path) const {
  const auto found = std::ranges::lower_bound(entries, path, comesBefore, &ManifestEntry::path);
  return found != entries.end() && found->path == path ? &*found : nullptr;
}

Manifest manifestOf(std::string_view bytes) { return Parser(bytes).parse(); }

std::string textOf(const Manifest& manifest) {
  std::string text(formatLine);
  text += "\nidentifier " + manifest.identifier + "\nversion " + manifest.version + "\n";
  if (manifest.previousKey) text += "previous-key " + Minisign::textOf(*manifest.previousKey) + "\n";
  for (const auto& entry : manifest.entries) text += lineOf(entry) + "\n";
  if (manifestOf(text) != manifest) throw Failure("the manifest cannot be written");
  return text;
}

bool comesBefore(std::string_view path, std::string_view other) {
  if ((path == bundleItself) != (other == bundleItself)) return path == bundleItself;
  return path < other;
}

bool isBundleIdentifier(std::string_view text) {
  const auto isAllowed = [](char character) {
    const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    return isLetter || (character >= '0' && character <= '9') || character == '.' || character == '-' || character == '_';
  };
  return !text.empty() && text.size() <= maximumNameBytes && std::ranges::all_of(text, isAllowed);
}

std::string printable(std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (isPrintable(byte))
      text += character;
    else
      text += {'%', digits[byte >> 4], digits[byte & 15]};
  }
  return text;
}

std::string_view nameOf(EntryKind kind) {
  if (kind == EntryKind::file) return "file";
  return kind == EntryKind::folder ? "folder" : "link";
}

std::string octal(mode_t mode) {
  std::string text(4, '0');
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit, mode >>= 3) *digit = static_cast<char>('0' + (mode & 7));
  return text;
}

std::string hexadecimal(const Digest& digest) {
  std::array<char, 2 * sizeof(Digest) + 1> text{};
  sodium_bin2hex(text.data(), text.size(), digest.data(), digest.size());
  return text.data();
}

}  // namespace AssistantTool
