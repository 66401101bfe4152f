#pragma once
// The standard user defaults on Linux: arguments, then ~/.config/<domain>.plist, then registered defaults. Any thread.
//
// Changes that another program stores are seen at the next look-up.
#include <mutex>
#include <string>
#include <string_view>

#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"
#include "platform/linux/DefaultsFile.h"

namespace platform::Linux {

// A dash, and then no number: the key of an argument "-Key value", which is never a value itself.
bool looksLikeKey(std::string_view argument);

// The argument domain: "-Key" followed by its value, always kept as text. An argument that itself looks like a key (a dash
// and then no number) does not count as a value. A key that is followed by another key, or stands at the end, is left out;
// the last of two equal keys counts. The first argument is the program.
foundation::PropertyList::Dictionary argumentDomain(int argc, const char* const* argv);

class UserDefaults final : public platform::UserDefaults {
 public:
  // `domain` is the application's bundle identifier. Troubles with its file go to `log`; a file that cannot be read counts
  // as empty, and is never written to. Without a usable domain nothing can be stored.
  UserDefaults(int argc, const char* const* argv, std::string_view domain, platform::SystemLog& log);

  [[nodiscard]] std::optional<foundation::PropertyList::Value> objectForKey(std::string_view key) const override;
  bool setObject(std::string_view key, const foundation::PropertyList::Value& value) override;
  bool removeObject(std::string_view key) override;

  // Adds to what is answered when neither an argument nor the stored domain has a key; later values win.
  void registerDefaults(const foundation::PropertyList::Dictionary& values);

 private:
  bool update(const std::function<bool(foundation::PropertyList::Dictionary&)>& change);
  void refresh() const;
  [[nodiscard]] bool isUpToDate() const;

  platform::SystemLog& _log;
  const foundation::PropertyList::Dictionary _arguments;
  const std::optional<DefaultsFile> _file;
  mutable std::mutex _mutex;
  foundation::PropertyList::Dictionary _registered;
  mutable bool _hasRead = false;
  mutable std::optional<ReadDocument> _source;  // what _stored was read from
  mutable foundation::PropertyList::Dictionary _stored;
};

}  // namespace platform::Linux
