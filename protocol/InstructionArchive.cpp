#include "protocol/InstructionArchive.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <span>

#include "protocol/Utf8.h"

namespace InstructionArchive {
namespace {

constexpr unsigned char twoByteTag = 0x81;
constexpr unsigned char fourByteTag = 0x82;
constexpr unsigned char newTag = 0x84;
constexpr unsigned char nilTag = 0x85;
constexpr unsigned char endTag = 0x86;
constexpr int lastTag = -111;  // signed bytes from -128 to here are tags, never values
constexpr int firstReference = -110;
constexpr unsigned char streamerVersion = 4;
constexpr int systemVersion = 1000;
constexpr std::string_view streamSignature = "streamtyped";
constexpr std::string_view objectType = "@";
constexpr std::string_view integerType = "i";
constexpr std::string_view bytesType = "+";

struct ClassName {
  std::string_view name;
  int version;
  bool operator==(const ClassName&) const = default;
};
constexpr std::array<ClassName, 3> mutableDictionaryClass{
    {{"NSMutableDictionary", 0}, {"NSDictionary", 0}, {"NSObject", 0}}};
constexpr std::array<ClassName, 2> stringClass{{{"NSString", 1}, {"NSObject", 0}}};
constexpr std::array<ClassName, 3> mutableStringClass{{{"NSMutableString", 1}, {"NSString", 1}, {"NSObject", 0}}};
constexpr std::size_t longestChain = 3;

class Writer {
 public:
  std::string dictionary(const Instructions& instructions) {
    header();
    beginObject(mutableDictionaryClass);
    shared(integerType);
    integer(static_cast<std::int64_t>(instructions.size()));
    for (const auto& [key, value] : instructions) {
      string(key);
      string(value);
    }
    byte(endTag);
    return std::move(out_);
  }

 private:
  void byte(unsigned char value) { out_.push_back(static_cast<char>(value)); }
  void integer(std::int64_t value) {
    if (value > lastTag && value <= std::numeric_limits<std::int8_t>::max()) return byte(static_cast<unsigned char>(value));
    const bool isShort =
        value >= std::numeric_limits<std::int16_t>::min() && value <= std::numeric_limits<std::int16_t>::max();
    byte(isShort ? twoByteTag : fourByteTag);
    for (int shift = 0; shift < (isShort ? 16 : 32); shift += 8) byte(static_cast<unsigned char>(value >> shift));
  }
  void counted(std::string_view bytes) {
    integer(static_cast<std::int64_t>(bytes.size()));
    out_ += bytes;
  }
  void reference(std::size_t number) { integer(static_cast<std::int64_t>(number) + firstReference); }

  void header() {
    byte(streamerVersion);
    counted(streamSignature);
    integer(systemVersion);
  }
  void shared(std::string_view text) {
    const auto known = std::ranges::find(strings_, text);
    if (known != strings_.end()) return reference(static_cast<std::size_t>(known - strings_.begin()));
    strings_.push_back(text);
    byte(newTag);
    counted(text);
  }
  // Writes the class `chain` begins with, and above it what has not been written before.
  void classChain(std::span<const ClassName> chain) {
    for (const ClassName& name : chain) {
      const auto known = std::ranges::find(objects_, name.name);
      if (known != objects_.end()) return reference(static_cast<std::size_t>(known - objects_.begin()));
      objects_.push_back(name.name);
      byte(newTag);
      shared(name.name);
      integer(name.version);
    }
    byte(nilTag);
  }
  void beginObject(std::span<const ClassName> chain) {
    shared(objectType);
    byte(newTag);
    objects_.emplace_back();
    classChain(chain);
  }
  void string(std::string_view text) {
    beginObject(stringClass);
    shared(bytesType);
    counted(text);
    byte(endTag);
  }

  std::string out_;
  std::vector<std::string_view> strings_;
  std::vector<std::string_view> objects_;  // a class by its name, any other object as an empty place
};

// A recursive descent without recursion into data: after the first refusal every step does nothing and answers "no".
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  std::optional<Instructions> dictionary() {
    if (!header() || !value(objectType) || !newObject(Entry::Kind::dictionary)) return std::nullopt;
    const auto count = pairCount();
    if (!count) return std::nullopt;
    Instructions instructions;
    for (std::int64_t i = 0; i < *count; ++i) {
      if (!pair(instructions)) return std::nullopt;
    }
    if (!expect(endTag, "the dictionary has no end")) return std::nullopt;
    if (!rest_.empty()) return refuse("bytes follow the dictionary"), std::nullopt;
    return instructions;
  }
  [[nodiscard]] const std::string& reason() const { return reason_; }

 private:
  struct Entry {
    enum class Kind { dictionary, string, aClass };
    Kind kind = Kind::string;
    std::string_view text;  // a string's characters, or a class's name
    int version = 0;
    std::optional<std::size_t> superclass;
  };

  bool refuse(std::string_view reason) {
    if (reason_.empty()) reason_ = reason;
    return false;
  }
  std::optional<unsigned char> byte() {
    if (rest_.empty()) return refuse("the archive ends early"), std::nullopt;
    const auto value = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }
  bool expect(unsigned char tag, std::string_view reason) {
    const auto found = byte();
    return found && (*found == tag || refuse(reason));
  }
  std::optional<std::int64_t> integer() {
    const auto head = byte();
    return head ? integerAfter(*head) : std::nullopt;
  }
  std::optional<std::int64_t> integerAfter(unsigned char head) {
    const auto small = static_cast<std::int8_t>(head);
    if (small > lastTag) return small;
    if (head != twoByteTag && head != fourByteTag) return refuse("a tag stands where a number belongs"), std::nullopt;
    std::uint32_t value = 0;
    for (int shift = 0; shift < (head == twoByteTag ? 16 : 32); shift += 8) {
      const auto next = byte();
      if (!next) return std::nullopt;
      value |= std::uint32_t{*next} << shift;
    }
    if (head == twoByteTag) return static_cast<std::int16_t>(value);
    return static_cast<std::int32_t>(value);
  }
  std::optional<std::string_view> counted() {
    const auto length = integer();
    if (!length) return std::nullopt;
    if (*length < 0) return refuse("a length is negative"), std::nullopt;
    if (static_cast<std::uint64_t>(*length) > rest_.size()) return refuse("the archive ends early"), std::nullopt;
    const auto text = rest_.substr(0, static_cast<std::size_t>(*length));
    rest_.remove_prefix(text.size());
    return text;
  }
  // The number of the earlier object or string that `head` begins to refer to.
  std::optional<std::size_t> referenceAfter(unsigned char head, std::size_t known) {
    const auto stored = integerAfter(head);
    if (!stored) return std::nullopt;
    const std::int64_t number = *stored - firstReference;
    if (number < 0 || static_cast<std::uint64_t>(number) >= known) return refuse("a reference to nothing"), std::nullopt;
    return static_cast<std::size_t>(number);
  }

  bool header() {
    const auto version = byte();
    if (!version || *version != streamerVersion) return refuse("not a typed stream");
    if (counted() != streamSignature || integer() != systemVersion) return refuse("not a typed stream of version 1000");
    return true;
  }
  std::optional<std::string_view> shared() {
    const auto head = byte();
    if (!head) return std::nullopt;
    if (*head == newTag) {
      const auto text = counted();
      if (text) strings_.push_back(*text);
      return text;
    }
    const auto number = referenceAfter(*head, strings_.size());
    if (!number) return std::nullopt;
    return strings_[*number];
  }
  bool value(std::string_view type) {
    const auto found = shared();
    return found && (*found == type || refuse("a value of another type than expected"));
  }
  std::optional<std::int64_t> pairCount() {
    if (!value(integerType)) return std::nullopt;
    const auto count = integer();
    if (!count) return std::nullopt;
    if (*count < 0 || *count > static_cast<std::int64_t>(maximumPairs)) return refuse("too many pairs"), std::nullopt;
    return count;
  }

  // Reads classes, each followed by its superclass, up to the root's nil or one that was written before.
  bool classChain() {
    std::optional<std::size_t> below;
    for (std::size_t i = 0; i <= longestChain; ++i) {
      const auto head = byte();
      if (!head) return false;
      if (*head == nilTag) return below ? true : refuse("an object without a class");
      std::optional<std::size_t> number;
      if (*head != newTag) {
        number = referenceAfter(*head, objects_.size());
        if (!number) return false;
        if (objects_[*number].kind != Entry::Kind::aClass) return refuse("a class reference to something else");
      } else {
        number = newClass();
        if (!number) return false;
      }
      if (below) objects_[*below].superclass = number;
      if (!below) class_ = *number;
      if (*head != newTag) return true;
      below = number;
    }
    return refuse("a class with too many above it");
  }
  std::optional<std::size_t> newClass() {
    const auto number = objects_.size();
    objects_.push_back({.kind = Entry::Kind::aClass, .text = {}, .version = 0, .superclass = {}});
    const auto name = shared();
    const auto version = name ? integer() : std::nullopt;
    if (!version) return std::nullopt;
    objects_[number].text = *name;
    objects_[number].version = static_cast<int>(*version);
    return number;
  }
  [[nodiscard]] bool isClass(std::size_t number, std::span<const ClassName> chain) const {
    std::optional<std::size_t> at = number;
    for (const ClassName& expected : chain) {
      if (!at || ClassName{objects_[*at].text, objects_[*at].version} != expected) return false;
      at = objects_[*at].superclass;
    }
    return !at;
  }
  // The 0x84 of a new object, which takes its number at once, and its class.
  bool newObject(Entry::Kind kind) { return expect(newTag, "no object where one belongs") && objectAfterTag(kind); }
  bool objectAfterTag(Entry::Kind kind) {
    objects_.push_back({.kind = kind, .text = {}, .version = 0, .superclass = {}});
    if (!classChain()) return false;
    if (kind == Entry::Kind::dictionary) {
      const auto immutable = std::span(mutableDictionaryClass).subspan(1);
      return isClass(class_, mutableDictionaryClass) || isClass(class_, immutable) || refuse("not a dictionary");
    }
    return isClass(class_, stringClass) || isClass(class_, mutableStringClass) || refuse("a key or value is not a string");
  }

  std::optional<std::string_view> string() {
    if (!value(objectType)) return std::nullopt;
    const auto head = byte();
    if (!head) return std::nullopt;
    if (*head == nilTag) return refuse("a key or value is missing"), std::nullopt;
    if (*head != newTag) return repeatedString(*head);
    const auto number = objects_.size();
    if (!objectAfterTag(Entry::Kind::string) || !value(bytesType)) return std::nullopt;
    const auto text = counted();
    if (!text || !expect(endTag, "a string has no end")) return std::nullopt;
    if (text->find('\0') != std::string_view::npos) return refuse("a string holds a NUL character"), std::nullopt;
    if (!protocol::isValidUTF8(*text)) return refuse("a string is not UTF-8"), std::nullopt;
    objects_[number].text = *text;
    return text;
  }
  std::optional<std::string_view> repeatedString(unsigned char head) {
    const auto number = referenceAfter(head, objects_.size());
    if (!number) return std::nullopt;
    if (objects_[*number].kind == Entry::Kind::string) return objects_[*number].text;
    return refuse("a key or value is not a string"), std::nullopt;
  }
  bool pair(Instructions& instructions) {
    const auto key = string();
    const auto text = key ? string() : std::nullopt;
    if (!text) return false;
    if (valueForKey(instructions, *key) != nullptr) return refuse("a key stands twice");
    // References repeat a string for two bytes: what they expand to is bounded like the archive itself.
    expanded_ += key->size() + text->size();
    if (expanded_ > maximumBytes) return refuse("the strings are too long");
    instructions.emplace_back(*key, *text);
    return true;
  }

  std::string_view rest_;
  std::vector<std::string_view> strings_;
  std::vector<Entry> objects_;
  std::size_t class_ = 0;  // number of the class read last
  std::size_t expanded_ = 0;
  std::string reason_;
};

}  // namespace

const std::string* valueForKey(const Instructions& instructions, std::string_view key) {
  const auto found = std::ranges::find(instructions, key, &Instructions::value_type::first);
  return found == instructions.end() ? nullptr : &found->second;
}

void setValueForKey(Instructions& instructions, std::string_view key, std::string value) {
  const auto found = std::ranges::find(instructions, key, &Instructions::value_type::first);
  if (found == instructions.end()) {
    instructions.emplace_back(key, std::move(value));
  } else {
    found->second = std::move(value);
  }
}

std::string archivedData(const Instructions& instructions) { return Writer().dictionary(instructions); }

std::optional<Instructions> unarchived(std::string_view bytes, std::string* reason) {
  if (bytes.size() > maximumBytes) {
    if (reason != nullptr) *reason = "the archive is too long";
    return std::nullopt;
  }
  Reader reader(bytes);
  auto instructions = reader.dictionary();
  if (!instructions && reason != nullptr) *reason = reader.reason();
  return instructions;
}

}  // namespace InstructionArchive
