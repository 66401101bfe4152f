#pragma once
// Watching the values of objects by key path.
//
// A notification arrives on the thread that made the change, before didChangeValueForKey returns. Registering is safe from
// any thread. Callers that destroy an observer, or change one object from several threads, must order these themselves.
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace foundation {

class KeyValueObservable;

// The description of a change, without old or new values: no observer asks for them.
struct KeyValueChange {
  static constexpr std::uint64_t setting = 1;
  std::uint64_t kind = setting;
};

class KeyValueObserver {
 public:
  virtual ~KeyValueObserver() = default;
  // `keyPath`, `object` and `context` are those given at registration.
  virtual void observeValueForKeyPath_ofObject_change_context(std::string_view keyPath, KeyValueObservable& object,
                                                              const KeyValueChange& change, void* context) = 0;
};

// An object whose keys can be watched. It lives in a shared_ptr, and is kept alive while it notifies.
class KeyValueObservable : public std::enable_shared_from_this<KeyValueObservable> {
 public:
  KeyValueObservable() = default;
  KeyValueObservable(const KeyValueObservable&) = delete;
  KeyValueObservable& operator=(const KeyValueObservable&) = delete;
  virtual ~KeyValueObservable();

  // Registers `observer`, which is not owned and must be removed before it is destroyed. A key path of several keys,
  // separated by dots, leads through objectForKey; a change of any of its keys is a change of the path. An observer that is
  // registered twice is notified twice.
  void addObserver_forKeyPath_context(KeyValueObserver& observer, std::string_view keyPath, void* context = nullptr);
  // Removes the latest such registration, if any. From then on the observer is not called, not even for a change whose
  // notifications are under way.
  void removeObserver_forKeyPath(KeyValueObserver& observer, std::string_view keyPath);

  // Notifies the observers. A setter calls this last, after it changed the value under `key`.
  void didChangeValueForKey(std::string_view key);

 protected:
  // The object under `key`, for key paths that lead on from here; nullptr if there is none.
  [[nodiscard]] virtual std::shared_ptr<KeyValueObservable> objectForKey(std::string_view key) const;

 private:
  struct Registration;
  class Link;

  std::mutex _mutex;
  std::vector<std::shared_ptr<Registration>> _registrations;
};

}  // namespace foundation
