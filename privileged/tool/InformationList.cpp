#include "privileged/tool/InformationList.h"

#include <algorithm>
#include <array>
#include <vector>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

constexpr std::string_view whitespace = " \t\r\n";

constexpr std::array<std::string_view, 2> informationKeys{"CFBundleIdentifier", "CFBundleVersion"};

[[noreturn]] void refuse(const std::string& reason) { throw Failure("cannot read the property list: " + reason); }

enum class TagKind { open, close, empty };

struct Tag {
  std::string_view name;
  TagKind kind = TagKind::open;

  [[nodiscard]] bool opens(std::string_view element) const { return kind == TagKind::open && name == element; }
  [[nodiscard]] bool closes(std::string_view element) const { return kind == TagKind::close && name == element; }
};

// Goes through the list from tag to tag.
class TagReader {
 public:
  explicit TagReader(std::string_view bytes) : _rest(bytes) {
    if (_rest.starts_with("\xEF\xBB\xBF")) _rest.remove_prefix(3);
  }

  // The next tag. The text before it must be blank, unless it `mayFollowText`.
  Tag next(bool mayFollowText = false) {
    for (;;) {
      const auto text = takeUntil("<");
      if (!mayFollowText && text.find_first_not_of(whitespace) != std::string_view::npos) refuse("text between elements");
      if (_rest.starts_with("?")) {
        takeUntil("?>");
      } else if (_rest.starts_with("!--")) {
        _rest.remove_prefix(3);
        takeUntil("-->");
      } else if (_rest.starts_with("!DOCTYPE")) {
        if (takeUntil(">").find('[') != std::string_view::npos) refuse("it declares entities");
      } else {
        return tagOf(takeUntil(">"));
      }
    }
  }

  // The text of the element `name` that has just been opened, up to its end.
  std::string_view textOf(std::string_view name) {
    const auto text = takeUntil("<");
    if (!tagOf(takeUntil(">")).closes(name)) refuse("an element inside a text");
    return text;
  }

 private:
  std::string_view takeUntil(std::string_view end) {
    const auto at = _rest.find(end);
    if (at == std::string_view::npos) refuse("it ends early");
    const auto taken = _rest.substr(0, at);
    _rest.remove_prefix(at + end.size());
    return taken;
  }

  static Tag tagOf(std::string_view text) {
    Tag tag;
    if (text.starts_with('/')) {
      tag.kind = TagKind::close;
      text.remove_prefix(1);
    } else if (text.ends_with('/')) {
      tag.kind = TagKind::empty;
      text.remove_suffix(1);
    }
    const auto end = std::min(text.find_first_of(whitespace), text.size());
    tag.name = text.substr(0, end);
    const auto isLetter = [](char character) { return character >= 'a' && character <= 'z'; };
    if (tag.name.empty() || !std::ranges::all_of(tag.name, isLetter)) refuse("an unknown element");
    // The outermost element alone has an attribute, its format's version.
    const bool hasMore = text.find_first_not_of(whitespace, end) != std::string_view::npos;
    if (hasMore && !tag.opens("plist")) refuse("an element with an attribute");
    return tag;
  }

  std::string_view _rest;
};

void skipValue(TagReader& tags) {
  std::vector<std::string_view> open;
  do {
    const auto tag = tags.next(!open.empty());
    if (tag.kind == TagKind::open) open.push_back(tag.name);
    if (tag.kind != TagKind::close) continue;
    if (open.empty() || open.back() != tag.name) refuse("elements that do not match");
    open.pop_back();
  } while (!open.empty());
}

std::string plainText(TagReader& tags, std::string_view name) {
  const auto text = tags.textOf(name);
  if (text.find('&') != std::string_view::npos) refuse("a reference in a text");
  return std::string(text);
}

std::string stringOf(TagReader& tags, const std::string& key) {
  if (!tags.next().opens("string")) refuse("the value of " + key + " is not a string");
  return plainText(tags, "string");
}

}  // namespace

std::map<std::string, std::string, std::less<>> stringsOf(std::string_view propertyList,
                                                          std::span<const std::string_view> keys) {
  if (propertyList.size() > maximumInformationListBytes) refuse("it is too long");
  TagReader tags(propertyList);
  if (!tags.next().opens("plist") || !tags.next().opens("dict")) refuse("not a dictionary in XML");
  std::map<std::string, std::string, std::less<>> strings;
  for (;;) {
    const auto tag = tags.next();
    if (tag.closes("dict")) break;
    if (!tag.opens("key")) refuse("a value without a key");
    const auto key = plainText(tags, "key");
    if (std::ranges::find(keys, key) == keys.end()) {
      skipValue(tags);
    } else if (!strings.emplace(key, stringOf(tags, key)).second) {
      refuse("a key comes twice");
    }
  }
  if (!tags.next().closes("plist")) refuse("something follows the dictionary");
  return strings;
}

BundleInformation bundleInformationOf(std::string_view propertyList) {
  const auto strings = stringsOf(propertyList, informationKeys);
  const auto valueOf = [&](std::string_view key) {
    const auto place = strings.find(key);
    return place == strings.end() ? std::nullopt : std::optional(place->second);
  };
  return {.identifier = valueOf(informationKeys[0]), .version = valueOf(informationKeys[1])};
}

}  // namespace AssistantTool
