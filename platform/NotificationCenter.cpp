#include "platform/NotificationCenter.h"

#include <utility>

namespace platform {

void NotificationCenter::addObserver(std::string_view name, NotificationHandler handler) {
  auto place = _observers.find(name);
  if (place == _observers.end()) place = _observers.emplace(std::string(name), std::vector<NotificationHandler>{}).first;
  place->second.push_back(std::move(handler));
}

void NotificationCenter::post(const Notification& notification) {
  const auto place = _observers.find(notification.name);
  if (place == _observers.end()) return;
  const auto handlers = place->second;
  for (const auto& handler : handlers) handler(notification);
}

}  // namespace platform
