#include "foundation/text/Format.h"

#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace foundation {
namespace {

constexpr std::string_view nothing = "(null)";
// Wider fields than any text that is meant; keeps a hostile table from asking for gigabytes.
constexpr int maximumWidth = 4096;

// One conversion as written: "%", position, flags, width, precision, length words, letter.
struct Conversion {
  std::size_t position = 0;  // counted from 1; 0 means the next argument
  std::string flags;
  std::optional<int> width;
  std::optional<int> precision;
  char letter = 0;
};

class Scanner {
 public:
  explicit Scanner(std::string_view text) : _rest(text) {}

  // Reads what follows a percent sign. False when it is no conversion.
  bool read(Conversion& conversion) {
    conversion.position = position();
    conversion.flags = take("-+ #0'");
    conversion.width = number();
    if (consume('.')) conversion.precision = number().value_or(0);
    take("hlqzjt");
    if (_rest.empty() || std::string_view("@diuxXocfFeEgGsSp").find(_rest.front()) == std::string_view::npos) return false;
    conversion.letter = _rest.front();
    _rest.remove_prefix(1);
    return true;
  }

  [[nodiscard]] std::string_view rest() const { return _rest; }

 private:
  std::size_t position() {
    const auto start = _rest;
    const auto digits = number();
    if (digits && *digits > 0 && consume('$')) return static_cast<std::size_t>(*digits);
    _rest = start;
    return 0;
  }

  std::optional<int> number() {
    std::optional<int> value;
    while (!_rest.empty() && _rest.front() >= '0' && _rest.front() <= '9') {
      value = std::min(value.value_or(0) * 10 + (_rest.front() - '0'), maximumWidth);
      _rest.remove_prefix(1);
    }
    return value;
  }

  bool consume(char wanted) {
    if (_rest.empty() || _rest.front() != wanted) return false;
    _rest.remove_prefix(1);
    return true;
  }

  std::string take(std::string_view letters) {
    const auto end = std::min(_rest.find_first_not_of(letters), _rest.size());
    std::string taken(_rest.substr(0, end));
    _rest.remove_prefix(end);
    return taken;
  }

  std::string_view _rest;
};

std::string padded(std::string text, const Conversion& conversion) {
  const auto width = static_cast<std::size_t>(conversion.width.value_or(0));
  if (text.size() >= width) return text;
  const std::string blanks(width - text.size(), ' ');
  return conversion.flags.find('-') == std::string::npos ? blanks + text : text + blanks;
}

template <class Number>
std::string printed(const Conversion& conversion, std::string_view lengthAndLetter, Number number) {
  std::string specification = "%";
  for (const char flag : conversion.flags)
    if (specification.find(flag) == std::string::npos) specification += flag;
  if (conversion.width) specification += std::to_string(*conversion.width);
  if (conversion.precision) specification += '.' + std::to_string(*conversion.precision);
  specification += lengthAndLetter;
  std::string text(64, '\0');
  for (;;) {
    const int length = std::snprintf(text.data(), text.size(), specification.c_str(), number);
    if (length < 0) return std::string(nothing);
    const bool complete = static_cast<std::size_t>(length) < text.size();
    text.resize(static_cast<std::size_t>(length) + (complete ? 0 : 1));
    if (complete) return text;
  }
}

bool isIn(char letter, std::string_view letters) { return letters.find(letter) != std::string_view::npos; }

template <class Integer>
std::string integerText(const Conversion& conversion, Integer number) {
  if (conversion.letter == 'c') return padded(std::string(1, static_cast<char>(number)), conversion);
  if (isIn(conversion.letter, "xXo"))
    return printed(conversion, std::string("ll") + conversion.letter, static_cast<unsigned long long>(number));
  if constexpr (std::is_signed_v<Integer>) {
    if (conversion.letter == 'u') return printed(conversion, "llu", static_cast<unsigned long long>(number));
    return printed(conversion, "lld", static_cast<long long>(number));
  } else {
    return printed(conversion, "llu", static_cast<unsigned long long>(number));
  }
}

struct Shown {
  const Conversion& conversion;

  std::string operator()(std::monostate) const { return padded(std::string(nothing), conversion); }
  std::string operator()(std::string_view text) const {
    if (conversion.precision && isIn(conversion.letter, "sS"))
      text = text.substr(0, static_cast<std::size_t>(*conversion.precision));
    return padded(std::string(text), conversion);
  }
  std::string operator()(std::int64_t number) const { return integerText(conversion, number); }
  std::string operator()(std::uint64_t number) const { return integerText(conversion, number); }
  std::string operator()(double number) const {
    const char letter = isIn(conversion.letter, "fFeEgG") ? conversion.letter : 'g';
    return printed(conversion, std::string(1, letter), number);
  }
  std::string operator()(const void* pointer) const {
    Conversion bare;
    bare.letter = 'p';
    return padded(pointer == nullptr ? "0x0" : printed(bare, "p", pointer), conversion);
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

// The conversions that nearly all formats consist of, without flags, width or precision. nullptr for any other.
char* putBare(char* place, char letter, const FormatArgument::Value& value) {
  const bool isUnsigned = letter == 'x' || letter == 'u';
  if (!isUnsigned && letter != 'd' && letter != '@' && letter != 's' && letter != 'i') return nullptr;
  if (const auto* string = std::get_if<std::string_view>(&value)) return place + string->copy(place, string->size());
  const int base = letter == 'x' ? 16 : 10;
  const auto* number = std::get_if<std::int64_t>(&value);
  if (number != nullptr && !isUnsigned) return std::to_chars(place, place + longestInteger, *number).ptr;
  if (number != nullptr) return std::to_chars(place, place + longestInteger, static_cast<std::uint64_t>(*number), base).ptr;
  const auto* natural = std::get_if<std::uint64_t>(&value);
  return natural == nullptr ? nullptr : std::to_chars(place, place + longestInteger, *natural, base).ptr;
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
  std::size_t next = 0;
  while (!format.empty()) {
    const auto percent = std::min(format.find('%'), format.size());
    text += format.substr(0, percent);
    format.remove_prefix(percent);
    if (format.empty()) break;
    format.remove_prefix(1);
    if (!format.empty() && format.front() == '%') {
      text += '%';
      format.remove_prefix(1);
      continue;
    }
    Scanner scanner(format);
    Conversion conversion;
    if (!scanner.read(conversion)) {
      text += '%';
      continue;
    }
    format = scanner.rest();
    const std::size_t index = conversion.position > 0 ? conversion.position - 1 : next++;
    text += index < arguments.size() ? std::visit(Shown{conversion}, arguments[index].value())
                                     : padded(std::string(nothing), conversion);
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

}  // namespace foundation
