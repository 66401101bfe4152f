#include "platform/linux/UserDefaults.h"

namespace platform::Linux {
namespace {

// A length of time, in nanoseconds.
constexpr std::int64_t totalNanoseconds(const timespec& time) { return time.tv_sec * 1'000'000'000LL + time.tv_nsec; }

const foundation::PropertyList::Value* find(const foundation::PropertyList::Dictionary& values, std::string_view key) {
  const auto place = values.find(key);
  return place == values.end() ? nullptr : &place->second;
}

}  // namespace

bool looksLikeKey(std::string_view argument) {
  if (argument.size() < 2 || argument.front() != '-') return false;
  return std::string_view("0123456789.").find(argument[1]) == std::string_view::npos;
}

foundation::PropertyList::Dictionary argumentDomain(int argc, const char* const* argv) {
  foundation::PropertyList::Dictionary values;
  for (int i = 1; i + 1 < argc; ++i) {
    const std::string_view key(argv[i]);
    if (!looksLikeKey(key) || looksLikeKey(argv[i + 1])) continue;
    values.insert_or_assign(std::string(key.substr(1)), foundation::PropertyList::Value(argv[i + 1]));
    ++i;
  }
  return values;
}

UserDefaults::UserDefaults(int argc, const char* const* argv, std::string_view domain, platform::SystemLog& log)
    : _log(log), _arguments(argumentDomain(argc, argv)), _file(DefaultsFile::forDomain(domain)) {}

std::optional<foundation::PropertyList::Value> UserDefaults::objectForKey(std::string_view key) const {
  if (const auto* value = find(_arguments, key)) return *value;
  const std::lock_guard lock(_mutex);
  refresh();
  if (const auto* value = find(_stored, key)) return *value;
  if (const auto* value = find(_registered, key)) return *value;
  return std::nullopt;
}

bool UserDefaults::setObject(std::string_view key, const foundation::PropertyList::Value& value) {
  return update([&](foundation::PropertyList::Dictionary& values) {
    values.insert_or_assign(std::string(key), value);
    return true;
  });
}

bool UserDefaults::removeObject(std::string_view key) {
  return update([&](foundation::PropertyList::Dictionary& values) {
    const auto place = values.find(key);
    if (place == values.end()) return false;
    values.erase(place);
    return true;
  });
}

void UserDefaults::registerDefaults(const foundation::PropertyList::Dictionary& values) {
  const std::lock_guard lock(_mutex);
  for (const auto& [key, value] : values) _registered.insert_or_assign(key, value);
  beginGeneration();
}

bool UserDefaults::update(const std::function<bool(foundation::PropertyList::Dictionary&)>& change) {
  std::string reason = "the application has no domain of its own";
  const bool isStored = _file && _file->update(change, reason);
  beginGeneration();
  if (!isStored) _log.log("NSUserDefaults: nothing was stored: " + reason);
  return isStored;
}

void UserDefaults::refresh() const {
  if (!_file || isUpToDate()) return;
  std::string reason;
  auto values = _file->read(reason, &_source);
  if (!values) _log.log("NSUserDefaults: " + reason);
  _stored = values ? std::move(*values) : foundation::PropertyList::Dictionary();
  _hasRead = true;
}

// Every writer puts a new file in place, and a file that is held open keeps its number, so another number is another file.
// Size and time tell when some editor wrote into the file itself.
bool UserDefaults::isUpToDate() const {
  if (!_hasRead) return false;
  struct stat now {};
  if (::stat(_file->path().c_str(), &now) != 0) return !_source;
  if (!_source) return false;
  const auto& seen = _source->status;
  return now.st_dev == seen.st_dev && now.st_ino == seen.st_ino && now.st_size == seen.st_size &&
         totalNanoseconds(now.st_mtim) == totalNanoseconds(seen.st_mtim);
}

}  // namespace platform::Linux
