#pragma once
// The standard user defaults: argument domain first, then the application's stored domain, then registered defaults.
//
// Main thread and any thread: lookups are safe from every thread.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"

namespace platform {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The value under `key` from the first domain that has it, or nothing.
  [[nodiscard]] virtual std::optional<foundation::PropertyList::Value> objectForKey(std::string_view key) const = 0;

  // Changes whenever this process changes a value, so that what was made of values can be kept until then; 0 when that
  // cannot be told, and then every answer holds for now only. Other programs' changes do not count. Cheap.
  [[nodiscard]] virtual std::uint64_t generation() const { return 0; }

  // Stores in the application's own domain, on disk when this returns; false when it could not be stored.
  virtual bool setObject(std::string_view key, const foundation::PropertyList::Value& value) = 0;
  virtual bool removeObject(std::string_view key) = 0;

  // Typed reads with the platform's usual conversions: a number or boolean reads as its text, nothing otherwise.
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;
  // True for YES, true, a number other than zero, or text that starts (after blanks, sign and zeros) with Y, y, T, t or
  // 1-9.
  [[nodiscard]] bool boolForKey(std::string_view key) const;
  // The leading decimal integer of a text, saturating; 0 when there is none.
  [[nodiscard]] std::int64_t integerForKey(std::string_view key) const;
};

}  // namespace platform
