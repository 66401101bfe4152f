#include "foundation/text/Format.h"

#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "foundation/text/FormatGrammar.h"
#include "foundation/text/UTF8.h"

namespace foundation {
namespace {

constexpr std::string_view absent = "(null)";

// Appends `shown`, filled up with blanks to the width of the conversion.
void appendPadded(std::string& text, std::string_view shown, const Conversion& conversion) {
  const std::size_t characters = conversion.width == 0 ? 0 : characterCount(shown);
  const std::size_t blanks = conversion.width - std::min(characters, conversion.width);
  const bool isLeftAligned = conversion.has('-');
  if (!isLeftAligned) text.append(blanks, ' ');
  text += shown;
  if (isLeftAligned) text.append(blanks, ' ');
}

// The conversion as the C library takes it, with a length word and a letter that fit the argument.
class Specification {
 public:
  Specification(const Conversion& conversion, std::string_view lengthAndLetter) {
    put("%");
    for (const char& flag : Conversion::flagLetters)
      if (conversion.has(flag)) put({&flag, 1});
    if (conversion.width > 0) putNumber(conversion.width);
    if (conversion.precision) put(".");
    if (conversion.precision) putNumber(*conversion.precision);
    put(lengthAndLetter);
    *_end = '\0';
  }

  [[nodiscard]] const char* text() const { return _text; }

 private:
  void put(std::string_view part) { _end += part.copy(_end, part.size()); }
  void putNumber(std::size_t number) { _end = std::to_chars(_end, std::end(_text), number).ptr; }

  char _text[24];  // sign, 6 flags, 4 digits, point, 4 digits, "llX" and the end are 20
  char* _end = _text;
};

template <class Number>
void appendPrinted(std::string& text, const Conversion& conversion, std::string_view lengthAndLetter, Number number) {
  const Specification specification(conversion, lengthAndLetter);
  const std::size_t size = text.size();
  std::size_t room = 64;
  for (;;) {
    text.resize(size + room);
    const int length = std::snprintf(text.data() + size, room, specification.text(), number);
    const auto needed = static_cast<std::size_t>(std::max(length, 0));
    const bool isComplete = needed < room;
    text.resize(size + needed);
    if (isComplete) return;
    room = needed + 1;
  }
}

// Appends one argument as its conversion asks, or in its own natural form if it is of another type.
struct Appender {
  std::string& text;
  const Conversion& conversion;

  void operator()(std::monostate) const { appendPadded(text, absent, conversion); }
  void operator()(std::string_view shown) const {
    if (conversion.precision && conversion.kind == ConversionKind::text)
      shown = firstCharacters(shown, *conversion.precision);
    appendPadded(text, shown, conversion);
  }
  void operator()(std::int64_t number) const {
    if (conversion.kind == ConversionKind::character || conversion.kind == ConversionKind::unsignedInteger)
      return (*this)(static_cast<std::uint64_t>(number));
    appendPrinted(text, conversion, "lld", static_cast<long long>(number));
  }
  void operator()(std::uint64_t number) const {
    if (conversion.kind == ConversionKind::character) return appendCharacter(number);
    const bool isUnsigned = conversion.kind == ConversionKind::unsignedInteger;
    const char lengthAndLetter[] = {'l', 'l', isUnsigned ? conversion.letter : 'u'};
    appendPrinted(text, conversion, {lengthAndLetter, 3}, static_cast<unsigned long long>(number));
  }
  void operator()(double number) const {
    const char letter = conversion.kind == ConversionKind::real ? conversion.letter : 'g';
    appendPrinted(text, conversion, {&letter, 1}, number);
  }
  void operator()(const void* pointer) const {
    std::string digits = "0x0";
    if (pointer != nullptr) digits.clear();
    if (pointer != nullptr) appendPrinted(digits, Conversion(), "p", pointer);
    appendPadded(text, digits, conversion);
  }

 private:
  void appendCharacter(std::uint64_t number) const {
    constexpr char32_t replacement = 0xFFFD;
    std::string character;
    appendUTF8(character, isUnicodeScalar(number) ? static_cast<char32_t>(number) : replacement);
    appendPadded(text, character, conversion);
  }
};

using Word = std::uint64_t;

// How many bytes of the word, as it lies in memory, are before the first percent sign.
std::size_t plainBytes(Word word) {
  constexpr Word ones = 0x0101010101010101;
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  // The top bit of a byte is set where the sign is, and perhaps above that.
  const Word other = word ^ ones * '%';
  return static_cast<std::size_t>(std::countr_zero((other - ones) & ~other & ones * 0x80)) / 8;
}

// Copies from `from` to `place` up to a percent sign or to `end`, word by word: `place` has room for a word more. Leaves
// `from` where it stopped; returns the end of the copy.
char* copyPlain(char* place, const char*& from, const char* end) {
  while (end - from >= static_cast<std::ptrdiff_t>(sizeof(Word))) {
    Word word = 0;
    std::memcpy(&word, from, sizeof word);
    std::memcpy(place, &word, sizeof word);
    const std::size_t plain = plainBytes(word);
    from += plain;
    place += plain;
    if (plain < sizeof word) return place;
  }
  while (from != end && *from != '%') *place++ = *from++;
  return place;
}

constexpr std::size_t longestInteger = 20;

// Puts an argument whose conversion is a letter alone: the form of nearly all. Returns the end, or nullptr for a letter or
// an argument that takes the long way.
char* putBare(char* place, char letter, const FormatArgument::Value& value) {
  const ConversionKind kind = kindOfConversion(letter);
  if (kind == ConversionKind::none) return nullptr;
  if (const auto* string = std::get_if<std::string_view>(&value)) return place + string->copy(place, string->size());
  const bool isUnsigned = kind == ConversionKind::unsignedInteger;
  if (kind == ConversionKind::character || (isUnsigned && letter != 'x' && letter != 'u')) return nullptr;
  const auto* number = std::get_if<std::int64_t>(&value);
  if (number != nullptr && !isUnsigned) return std::to_chars(place, place + longestInteger, *number).ptr;
  const auto* natural = std::get_if<std::uint64_t>(&value);
  if (number == nullptr && natural == nullptr) return nullptr;
  const std::uint64_t bits = number == nullptr ? *natural : static_cast<std::uint64_t>(*number);
  return std::to_chars(place, place + longestInteger, bits, letter == 'x' ? 16 : 10).ptr;
}

// Puts the text together in place when all conversions are bare. Returns where it ends; nullptr when they are not.
char* putBareFormat(char* place, std::string_view format, std::span<const FormatArgument> arguments) {
  const char* from = format.data();
  const char* const end = from + format.size();
  for (auto argument = arguments.begin();;) {
    place = copyPlain(place, from, end);
    if (from == end) return place;
    if (end - from < 2) return nullptr;
    const char letter = from[1];
    from += 2;
    if (letter == '%') {
      *place++ = '%';
    } else {
      place = argument == arguments.end() ? nullptr : putBare(place, letter, argument->value());
      if (place == nullptr) return nullptr;
      ++argument;
    }
  }
}

// As long as any text that putBareFormat makes, and what copyPlain needs beyond it.
std::size_t roomFor(std::string_view format, std::span<const FormatArgument> arguments) {
  std::size_t room = format.size() + sizeof(Word);
  for (const auto& argument : arguments) {
    const auto* string = std::get_if<std::string_view>(&argument.value());
    room += string == nullptr ? longestInteger : string->size();
  }
  return room;
}

bool appendBareFormat(std::string& text, std::string_view format, std::span<const FormatArgument> arguments) {
  const std::size_t size = text.size();
  text.resize(size + roomFor(format, arguments));
  const char* end = putBareFormat(text.data() + size, format, arguments);
  text.resize(end == nullptr ? size : static_cast<std::size_t>(end - text.data()));
  return end != nullptr;
}

void appendAnyFormat(std::string& text, std::string_view format, std::span<const FormatArgument> arguments) {
  for (FormatParser parser(format); !parser.isAtEnd();) {
    const FormatPiece piece = parser.next();
    text += piece.text;
    if (piece.conversion.kind == ConversionKind::none) continue;
    const std::size_t index = piece.conversion.argument;
    const auto value = index < arguments.size() ? arguments[index].value() : FormatArgument::Value();
    std::visit(Appender{text, piece.conversion}, value);
  }
}

}  // namespace

std::string format(std::string_view format, std::span<const FormatArgument> arguments) {
  std::string text;
  appendFormat(text, format, arguments);
  return text;
}

void appendFormat(std::string& text, std::string_view format, std::span<const FormatArgument> arguments) {
  if (!appendBareFormat(text, format, arguments)) appendAnyFormat(text, format, arguments);
}

std::optional<std::string_view> formatInto(std::span<char> room, std::string_view format,
                                           std::span<const FormatArgument> arguments) {
  if (roomFor(format, arguments) > room.size()) return std::nullopt;
  const char* end = putBareFormat(room.data(), format, arguments);
  if (end == nullptr) return std::nullopt;
  return std::string_view(room.data(), end);
}

}  // namespace foundation
