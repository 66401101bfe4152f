#pragma once
// A format and the place it was written at. A literal is checked against its arguments while compiling; a format made at
// run time is taken as it is, and foundation/text/Format.h shows what does not fit instead of failing. Any thread.
#include <concepts>
#include <cstddef>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "foundation/text/Format.h"

namespace logging {

// What an argument is to a conversion.
enum class ArgumentKind { text, integer, real, pointer, printable };

template <class T>
concept Formattable = std::constructible_from<foundation::FormatArgument, const T&>;

// Anything that a stream accepts.
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

constexpr bool accepts(char letter, ArgumentKind kind) {
  constexpr auto has = [](std::string_view letters, char one) { return letters.find(one) != std::string_view::npos; };
  if (letter == '@') return true;
  if (has("diuxXoc", letter)) return kind == ArgumentKind::integer;
  if (has("fFeEgG", letter)) return kind == ArgumentKind::real;
  if (has("sS", letter)) return kind == ArgumentKind::text;
  return kind == ArgumentKind::pointer;
}

// Goes through `format` as platform::format does.
template <class... Arguments>
consteval void check(std::string_view format) {
  constexpr std::size_t count = sizeof...(Arguments);
  constexpr ArgumentKind kinds[count + 1] = {kindOf<Arguments>()...};
  bool used[count + 1] = {};
  std::size_t next = 0;
  const auto skip = [&format](std::string_view letters) {
    while (!format.empty() && letters.find(format.front()) != std::string_view::npos) format.remove_prefix(1);
  };
  const auto number = [&format] {
    std::size_t value = 0;
    for (; !format.empty() && format.front() >= '0' && format.front() <= '9'; format.remove_prefix(1))
      value = value * 10 + static_cast<std::size_t>(format.front() - '0');
    return value;
  };
  while (!format.empty()) {
    const bool isPercent = format.front() == '%';
    format.remove_prefix(1);
    if (!isPercent) continue;
    if (!format.empty() && format.front() == '%') {
      format.remove_prefix(1);
      continue;
    }
    std::size_t index = count;
    const auto start = format;
    const std::size_t position = number();
    if (position > 0 && !format.empty() && format.front() == '$') {
      format.remove_prefix(1);
      index = position - 1;
    } else {
      format = start;
      index = next++;
    }
    skip("-+ #0'");
    number();
    if (!format.empty() && format.front() == '.') format.remove_prefix(1);
    number();
    skip("hlqzjt");
    if (format.empty() || std::string_view("@diuxXocfFeEgGsSp").find(format.front()) == std::string_view::npos)
      theConversionIsNotKnown();
    if (index >= count) aConversionHasNoArgument();
    if (!accepts(format.front(), kinds[index])) theArgumentDoesNotFitItsConversion();
    used[index] = true;
    format.remove_prefix(1);
  }
  for (std::size_t i = 0; i < count; ++i)
    if (!used[i]) anArgumentHasNoConversion();
}

// Where something is written in the source.
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
  // A format of nothing: the statement does nothing at all.
  FormatString(std::nullptr_t, Place place = Place::current()) : _isAbsent(true), _place(place) {}

  // Empty when it is a format of nothing.
  [[nodiscard]] std::string_view text() const { return _format; }
  [[nodiscard]] bool isAbsent() const { return _isAbsent; }
  [[nodiscard]] const Place& place() const { return _place; }

 private:
  std::string_view _format;
  bool _isAbsent = false;
  Place _place;
};

// One argument made ready for the formatter: what is only printable is printed first, and kept here.
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
