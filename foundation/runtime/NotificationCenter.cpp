#include "foundation/runtime/NotificationCenter.h"

#include <utility>

namespace foundation {

void NotificationCenter::addObserver(std::string_view name, NotificationHandler handler) {
  const std::lock_guard lock(_mutex);
  auto place = _observers.find(name);
  if (place == _observers.end()) place = _observers.emplace(std::string(name), std::vector<NotificationHandler>{}).first;
  place->second.push_back(std::move(handler));
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<NotificationHandler> handlers;
  {
    const std::lock_guard lock(_mutex);
    const auto place = _observers.find(notification.name);
    if (place != _observers.end()) handlers = place->second;
  }
  for (const auto& handler : handlers) handler(notification);
}

}  // namespace foundation
