#include "foundation/runtime/KeyValueObserving.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace foundation {

// One observer of one key path of one object. The first key is watched here; the rest of the path by a link, which
// registers with the object that the first key leads to.
struct KeyValueObservable::Registration : std::enable_shared_from_this<Registration> {
  Registration(KeyValueObserver& told, std::string_view path, void* given)
      : observer(told), keyPath(path), context(given) {}

  KeyValueObserver& observer;
  const std::string keyPath;
  void* const context;
  std::atomic<bool> isRemoved = false;
  std::shared_ptr<Link> link;

  [[nodiscard]] std::string_view firstKey() const { return std::string_view(keyPath).substr(0, keyPath.find('.')); }
  [[nodiscard]] std::string_view rest() const {
    const auto dot = keyPath.find('.');
    return dot == std::string::npos ? std::string_view{} : std::string_view(keyPath).substr(dot + 1);
  }
};

// Watches the rest of a path at the object in the middle, and passes its changes on as changes of the whole path.
class KeyValueObservable::Link final : public KeyValueObserver {
 public:
  Link(KeyValueObservable& root, Registration& registration) : _root(root), _registration(registration) {}
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  ~Link() override { follow(nullptr); }

  void follow(std::shared_ptr<KeyValueObservable> next) {
    if (_next != nullptr) _next->removeObserver_forKeyPath(*this, _registration.rest());
    _next = std::move(next);
    if (_next != nullptr) _next->addObserver_forKeyPath_context(*this, _registration.rest());
  }

  void observeValueForKeyPath_ofObject_change_context(std::string_view /*keyPath*/, KeyValueObservable& /*object*/,
                                                      const KeyValueChange& change, void* /*context*/) override {
    // Kept until the observer returns, whatever it takes back.
    const auto root = _root.weak_from_this().lock();
    const auto registration = _registration.shared_from_this();
    if (root == nullptr || registration->isRemoved) return;
    registration->observer.observeValueForKeyPath_ofObject_change_context(registration->keyPath, *root, change,
                                                                          registration->context);
  }

 private:
  KeyValueObservable& _root;
  Registration& _registration;
  std::shared_ptr<KeyValueObservable> _next;
};

KeyValueObservable::~KeyValueObservable() = default;

std::shared_ptr<KeyValueObservable> KeyValueObservable::objectForKey(std::string_view /*key*/) const { return nullptr; }

void KeyValueObservable::addObserver_forKeyPath_context(KeyValueObserver& observer, std::string_view keyPath,
                                                        void* context) {
  auto added = std::make_shared<Registration>(observer, keyPath, context);
  if (!added->rest().empty()) {
    added->link = std::make_shared<Link>(*this, *added);
    added->link->follow(objectForKey(added->firstKey()));
  }
  const std::lock_guard lock(_mutex);
  _registrations.push_back(std::move(added));
}

void KeyValueObservable::removeObserver_forKeyPath(KeyValueObserver& observer, std::string_view keyPath) {
  std::shared_ptr<Registration> removed;  // destroyed without the lock: its link may take others
  const std::lock_guard lock(_mutex);
  const auto place = std::find_if(_registrations.rbegin(), _registrations.rend(),
                                  [&](const auto& one) { return &one->observer == &observer && one->keyPath == keyPath; });
  if (place == _registrations.rend()) return;
  removed = std::move(*place);
  removed->isRemoved = true;
  _registrations.erase(std::next(place).base());
}

void KeyValueObservable::didChangeValueForKey(std::string_view key) {
  const auto self = weak_from_this().lock();
  std::vector<std::shared_ptr<Registration>> watching;
  {
    const std::lock_guard lock(_mutex);
    for (const auto& one : _registrations)
      if (one->firstKey() == key) watching.push_back(one);
  }
  for (const auto& one : watching) {
    if (one->isRemoved) continue;
    if (one->link) one->link->follow(objectForKey(key));
    one->observer.observeValueForKeyPath_ofObject_change_context(one->keyPath, *this, {}, one->context);
  }
}

}  // namespace foundation
