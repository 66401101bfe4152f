#pragma once
// A format and the place in the source where it was written. The compiler checks a literal against its arguments. A format
// made at run time is not checked: foundation/text/Format.h shows an argument that does not fit instead of failing. Any
// thread.
#include <concepts>
#include <cstddef>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "foundation/text/Format.h"
#include "foundation/text/FormatGrammar.h"

namespace logging {

// The kinds of argument that conversions tell apart.
enum class ArgumentKind { text, integer, real, pointer, printable };

template <class T>
concept Formattable = std::constructible_from<foundation::FormatArgument, const T&>;

// Any other type that a stream accepts.
template <class T>
concept Printable = !Formattable<T> && requires(std::ostream & stream, const T& value) {
  stream << value;
};

template <class T>
consteval ArgumentKind kindOf() {
  using Bare = std::remove_cvref_t<T>;
  if constexpr (std::is_integral_v<Bare>)
    return ArgumentKind::integer;
  else if constexpr (std::is_floating_point_v<Bare>)
    return ArgumentKind::real;
  else if constexpr (std::constructible_from<std::string_view, const T&> || std::same_as<Bare, std::optional<std::string>>)
    return ArgumentKind::text;
  else if constexpr (Formattable<T>)
    return ArgumentKind::pointer;
  else
    return ArgumentKind::printable;
}

// Not constexpr: reaching one of these while compiling is the error message.
inline void aConversionHasNoArgument() {}
inline void anArgumentHasNoConversion() {}
inline void theConversionIsNotKnown() {}
inline void theArgumentDoesNotFitItsConversion() {}

constexpr bool accepts(foundation::ConversionKind conversion, ArgumentKind argument) {
  using enum foundation::ConversionKind;
  switch (conversion) {
    case any:
      return true;
    case signedInteger:
    case unsignedInteger:
    case character:
      return argument == ArgumentKind::integer;
    case real:
      return argument == ArgumentKind::real;
    case text:
      return argument == ArgumentKind::text;
    case pointer:
      return argument == ArgumentKind::pointer;
    case none:
      break;
  }
  return false;
}

// Compiles if every conversion has an argument that fits it, and every argument a conversion.
template <class... Arguments>
consteval void check(std::string_view format) {
  constexpr std::size_t count = sizeof...(Arguments);
  constexpr ArgumentKind kinds[count + 1] = {kindOf<Arguments>()...};
  bool used[count + 1] = {};
  for (foundation::FormatParser parser(format); !parser.isAtEnd();) {
    const auto [text, conversion, isMalformed] = parser.next();
    if (isMalformed) theConversionIsNotKnown();
    if (conversion.kind == foundation::ConversionKind::none) continue;
    if (conversion.argument >= count) aConversionHasNoArgument();
    if (!accepts(conversion.kind, kinds[conversion.argument])) theArgumentDoesNotFitItsConversion();
    used[conversion.argument] = true;
  }
  for (std::size_t i = 0; i < count; ++i)
    if (!used[i]) anArgumentHasNoConversion();
}

// A place in the source.
struct Place {
  static constexpr Place current(const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
                                 int line = __builtin_LINE()) {
    return {file, function, line};
  }
  const char* file;
  const char* function;
  int line;
};

template <class... Arguments>
class FormatString {
 public:
  template <std::size_t N>
  consteval FormatString(const char (&literal)[N], Place place = Place::current())
      : _format(literal, N - 1), _place(place) {
    check<Arguments...>(std::string_view(literal, N - 1));
  }
  template <class Pointer>
  requires std::same_as<Pointer, const char*> FormatString(const Pointer& format, Place place = Place::current())
      : _format(format == nullptr ? "" : format), _isAbsent(format == nullptr), _place(place) {}
  FormatString(std::string_view format, Place place = Place::current()) : _format(format), _place(place) {}
  FormatString(const std::string& format, Place place = Place::current()) : _format(format), _place(place) {}
  // No format: the statement does nothing at all.
  FormatString(std::nullptr_t, Place place = Place::current()) : _isAbsent(true), _place(place) {}

  // Empty if there is no format.
  [[nodiscard]] std::string_view text() const { return _format; }
  [[nodiscard]] bool isAbsent() const { return _isAbsent; }
  [[nodiscard]] const Place& place() const { return _place; }

 private:
  std::string_view _format;
  bool _isAbsent = false;
  Place _place;
};

// One argument made ready for the formatter. If it can only be printed to a stream, it is printed first and kept here.
template <class T>
class ReadyArgument {
 public:
  explicit ReadyArgument(const T& value) {
    if constexpr (!Formattable<T>) {
      static_assert(Printable<T>, "an argument of a format must be text, a number, a pointer, or printable to a stream");
      std::ostringstream stream;
      stream << value;
      _text = stream.str();
    }
  }
  [[nodiscard]] foundation::FormatArgument argument(const T& value) const {
    if constexpr (Formattable<T>)
      return foundation::FormatArgument(value);
    else
      return foundation::FormatArgument(_text);
  }

 private:
  struct Nothing {};
  [[no_unique_address]] std::conditional_t<Formattable<T>, Nothing, std::string> _text;
};

// Calls `receive` with the arguments as a list.
template <class Receive, class... Arguments>
void withArguments(const Receive& receive, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    receive(std::span<const foundation::FormatArgument>{});
  } else {
    [&](const ReadyArgument<Arguments>&... ready) {
      const foundation::FormatArgument list[] = {ready.argument(arguments)...};
      receive(std::span<const foundation::FormatArgument>(list));
    }(ReadyArgument<Arguments>(arguments)...);
  }
}

}  // namespace logging
