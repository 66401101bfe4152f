#pragma once
// Property lists: the value type, and readers and writers of the XML and binary forms.
//
// Pure functions on values; any thread. The readers accept bytes from any source. They refuse malformed documents, and
// those that exceed the limits below, with a reason.
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "foundation/runtime/Time.h"

namespace foundation::PropertyList {

class Value;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;
using Data = std::vector<std::byte>;

// One property-list value. Strings are UTF-8.
class Value {
 public:
  using Storage = std::variant<std::string, bool, std::int64_t, double, Date, Data, Array, Dictionary>;

  Value(std::string value) : _storage(std::move(value)) {}
  Value(std::string_view value) : _storage(std::string(value)) {}
  Value(const char* value) : _storage(std::string(value)) {}
  Value(bool value) : _storage(value) {}
  Value(std::int64_t value) : _storage(value) {}
  Value(int value) : _storage(std::int64_t{value}) {}
  Value(double value) : _storage(value) {}
  Value(Date value) : _storage(value) {}
  Value(Data value) : _storage(std::move(value)) {}
  Value(Array value) : _storage(std::move(value)) {}
  Value(Dictionary value) : _storage(std::move(value)) {}

  // The value as T (one of the alternatives of Storage), or nullptr if it is of another type. Owned by this value.
  template <class T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&_storage);
  }

  [[nodiscard]] const Storage& storage() const { return _storage; }
  bool operator==(const Value& other) const;

 private:
  Storage _storage;
};

// A document beyond these limits is refused. The information list of a real application has a few kilobytes and five
// levels.
inline constexpr std::size_t maximumBytes = std::size_t{16} << 20;  // and of text and data together, once expanded
inline constexpr std::size_t maximumDepth = 64;
inline constexpr std::size_t maximumValues = 1'000'000;  // counted after shared references of the binary form are expanded

// Reads an XML or binary property list; the first bytes tell which. Returns nullopt on refusal, with the cause in `reason`
// if that is given. `reason` is unchanged on success.
std::optional<Value> parse(std::string_view bytes, std::string* reason = nullptr);

// A date as the XML form has it: "2026-11-20T10:20:30Z". The form has no place for a fraction of a second.
std::string dateText(Date date);

// The XML form, UTF-8, keys sorted, as the platform's own tools write it.
std::string serializeXML(const Value& value);

}  // namespace foundation::PropertyList
