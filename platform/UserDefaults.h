#pragma once
// The standard user defaults: argument domain first, then the application's stored domain, then registered defaults.
//
// Main thread and any thread: lookups are safe from every thread.
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"

namespace platform {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The value under `key` from the first domain that has it; nullopt if none has.
  [[nodiscard]] virtual std::optional<foundation::PropertyList::Value> objectForKey(std::string_view key) const = 0;

  // A number that changes whenever this process changes a value, so that results computed from values can be cached until
  // then. Changes by other programs do not count. Never 0. The number may be read when the defaults are gone.
  using Generation = std::atomic<std::uint64_t>;
  [[nodiscard]] std::shared_ptr<const Generation> generation() const { return _generation; }

  // Stores the value in the application's own domain; it is on disk when this returns. False on failure.
  virtual bool setObject(std::string_view key, const foundation::PropertyList::Value& value) = 0;
  virtual bool removeObject(std::string_view key) = 0;

  // Typed reads with the usual conversions. A number or boolean reads as its text, any other kind as nullopt.
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;
  // True for true, for a number other than zero, and for text that starts, after blanks, a sign and zeros, with Y, y, T, t
  // or 1-9.
  [[nodiscard]] bool boolForKey(std::string_view key) const;
  // The leading decimal integer of a text, saturating; 0 without one.
  [[nodiscard]] std::int64_t integerForKey(std::string_view key) const;

 protected:
  // After each change of a value.
  void beginGeneration() { _generation->fetch_add(1, std::memory_order_release); }

 private:
  const std::shared_ptr<Generation> _generation = std::make_shared<Generation>(1);
};

}  // namespace platform
