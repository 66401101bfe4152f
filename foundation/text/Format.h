#pragma once
// Format strings with %@: the one formatter behind localised texts and log messages.
//
// Pure; any thread. No format makes the formatter read an argument that was not given: formats come from string tables that
// translators write.
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "foundation/Api.h"

namespace foundation {

// One argument. Strings are borrowed for the duration of the call.
class KELTO_API FormatArgument {
 public:
  FormatArgument(std::string_view text) : _value(text) {}
  FormatArgument(const std::string& text) : _value(std::string_view(text)) {}
  FormatArgument(const char* text) : _value(std::monostate{}) {
    if (text != nullptr) _value = std::string_view(text);
  }
  FormatArgument(const std::optional<std::string>& text) : _value(std::monostate{}) {
    if (text) _value = std::string_view(*text);
  }
  template <std::signed_integral T>
  FormatArgument(T number) : _value(static_cast<std::int64_t>(number)) {}
  template <std::unsigned_integral T>
  FormatArgument(T number) : _value(static_cast<std::uint64_t>(number)) {}
  FormatArgument(double number) : _value(number) {}
  FormatArgument(const void* pointer) : _value(pointer) {}

  using Value = std::variant<std::monostate, std::string_view, std::int64_t, std::uint64_t, double, const void*>;
  [[nodiscard]] const Value& value() const { return _value; }

 private:
  Value _value;
};

// Fills `format`, whose grammar FormatGrammar.h describes.
//
// %@ shows any argument, %d %i %u %x %X %o %c %f %F %e %E %g %G %s %S %p one of their type; an argument of another type is
// shown in its own natural form. Width and precision count characters, not bytes, and have an upper bound of 4096; the
// precision of a text is its longest length. %c shows the Unicode character of a number, U+FFFD if there is no such
// character. Length words change nothing. A conversion without an argument shows "(null)", as does a null text.
KELTO_API std::string format(std::string_view format, std::span<const FormatArgument> arguments);
// Appends the same to `text`. Allocates nothing if `text` has the capacity and all conversions are a letter alone.
KELTO_API void appendFormat(std::string& text, std::string_view format, std::span<const FormatArgument> arguments);
// Puts the same into `room` and returns it. nullopt where a conversion is more than a letter, or where the result could
// be longer than the room less 8 bytes. Allocates nothing.
KELTO_API std::optional<std::string_view> formatInto(std::span<char> room, std::string_view format,
                                                     std::span<const FormatArgument> arguments);

template <class... Arguments>
std::string formatted(std::string_view text, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return format(text, {});
  } else {
    const FormatArgument list[] = {FormatArgument(arguments)...};
    return format(text, list);
  }
}

}  // namespace foundation
