#pragma once
// The grammar of format strings, in the one place where both the compiler, which checks literals, and the formatter read
// it:
//
//   conversion = "%" [position "$"] flag* [width] ["." precision] length* letter
//
// "%%" shows a percent sign, and so does one that begins no conversion. Pure; any thread.
#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace foundation {

// The kind of argument that a conversion asks for.
enum class ConversionKind : unsigned char { none, any, signedInteger, unsignedInteger, character, real, text, pointer };

constexpr std::array<ConversionKind, 256> conversionKinds() {
  using enum ConversionKind;
  constexpr std::pair<std::string_view, ConversionKind> rows[] = {
      {"@", any},   {"di", signedInteger}, {"uxXo", unsignedInteger}, {"c", character}, {"fFeEgG", real},
      {"sS", text}, {"p", pointer}};
  std::array<ConversionKind, 256> kinds{};
  for (const auto& [letters, kind] : rows)
    for (const char letter : letters) kinds[static_cast<unsigned char>(letter)] = kind;
  return kinds;
}

inline constexpr auto kindsByLetter = conversionKinds();

// `none` for a letter that ends no conversion.
constexpr ConversionKind kindOfConversion(char letter) { return kindsByLetter[static_cast<unsigned char>(letter)]; }

struct Conversion {
  static constexpr std::string_view flagLetters = "-+ #0'";
  static constexpr std::string_view lengthLetters = "hlqzjt";
  // Wider than any sensible field. The bound keeps a hostile string table from asking for gigabytes.
  static constexpr std::size_t maximumWidth = 4096;

  ConversionKind kind = ConversionKind::none;
  char letter = 0;
  unsigned flags = 0;                    // bit i stands for flagLetters[i], however often the format repeats it
  std::size_t argument = 0;              // index in the list of arguments
  std::size_t width = 0;                 // in characters, at most maximumWidth
  std::optional<std::size_t> precision;  // the same

  [[nodiscard]] constexpr bool has(char flag) const { return (flags >> flagLetters.find(flag) & 1U) != 0; }
};

// A stretch of plain text, and the conversion that follows it.
struct FormatPiece {
  std::string_view text;
  Conversion conversion;     // of kind `none` if the text is followed by another text or by the end
  bool isMalformed = false;  // the text ends with a percent sign that begins no conversion
};

// Takes a format apart from front to back.
class FormatParser {
 public:
  constexpr explicit FormatParser(std::string_view format) : _rest(format) {}

  [[nodiscard]] constexpr bool isAtEnd() const { return _rest.empty(); }

  constexpr FormatPiece next() {
    FormatPiece piece;
    const std::size_t percent = _rest.find('%');
    piece.text = _rest.substr(0, percent);
    if (percent == std::string_view::npos) {
      _rest = {};
      return piece;
    }
    const std::string_view throughSign = _rest.substr(0, percent + 1);
    _rest.remove_prefix(percent + 1);
    if (consume('%')) {
      piece.text = throughSign;
    } else if (!read(piece.conversion)) {
      piece.text = throughSign;
      piece.isMalformed = true;
    }
    return piece;
  }

 private:
  // Reads the part behind the percent sign. Returns false, and goes back to where it began, if it is not a conversion.
  constexpr bool read(Conversion& conversion) {
    const std::string_view start = _rest;
    const std::size_t position = readPosition();
    const unsigned flags = readFlags();
    const std::size_t width = readNumber();
    const bool hasPrecision = consume('.');
    const std::size_t precision = hasPrecision ? readNumber() : 0;
    _rest.remove_prefix(std::min(_rest.find_first_not_of(Conversion::lengthLetters), _rest.size()));
    const char letter = _rest.empty() ? '\0' : _rest.front();
    const ConversionKind kind = kindOfConversion(letter);
    if (kind == ConversionKind::none) {
      _rest = start;
      return false;
    }
    _rest.remove_prefix(1);
    const std::size_t argument = position > 0 ? position - 1 : _nextArgument++;
    conversion = {kind, letter, flags, argument, width, hasPrecision ? std::optional(precision) : std::nullopt};
    return true;
  }

  // Positions count from 1. Returns 0 if there is none: the conversion then takes the argument behind that of the last
  // conversion without position.
  constexpr std::size_t readPosition() {
    const std::string_view start = _rest;
    const std::size_t position = readNumber();
    if (position > 0 && consume('$')) return position;
    _rest = start;
    return 0;
  }

  constexpr unsigned readFlags() {
    unsigned flags = 0;
    for (; !_rest.empty(); _rest.remove_prefix(1)) {
      const std::size_t flag = Conversion::flagLetters.find(_rest.front());
      if (flag == std::string_view::npos) break;
      flags |= 1U << flag;
    }
    return flags;
  }

  constexpr std::size_t readNumber() {
    std::size_t value = 0;
    for (; !_rest.empty() && _rest.front() >= '0' && _rest.front() <= '9'; _rest.remove_prefix(1))
      value = std::min(value * 10 + static_cast<std::size_t>(_rest.front() - '0'), Conversion::maximumWidth);
    return value;
  }

  constexpr bool consume(char wanted) {
    if (_rest.empty() || _rest.front() != wanted) return false;
    _rest.remove_prefix(1);
    return true;
  }

  std::string_view _rest;
  std::size_t _nextArgument = 0;
};

}  // namespace foundation
