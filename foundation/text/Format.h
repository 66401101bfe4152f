#pragma once
// Format strings with %@: the one formatter behind localised texts and log messages.
//
// Pure; any thread. Nothing here reads an argument that was not given, whatever the format says: formats come from string
// tables that translators write.
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace foundation {

// One argument. Strings are borrowed for the duration of the call.
class FormatArgument {
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

// Fills `format`. Understood are %@ (any argument), %d %i %u %x %X %o %c %f %e %g %s %p with flags, width, precision and
// the length words h l ll q z j t, positions (%1$@, %2$d), and %% for a percent sign. An argument of another type than its
// conversion is shown in its own natural form. A conversion without an argument, like %@ of nothing, shows "(null)"; a
// percent sign that begins no conversion stands for itself.
std::string format(std::string_view format, std::span<const FormatArgument> arguments);
// The same, appended to `text`; allocates nothing for bare conversions once `text` is large enough.
void appendFormat(std::string& text, std::string_view format, std::span<const FormatArgument> arguments);

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
