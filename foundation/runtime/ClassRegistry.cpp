#include "foundation/runtime/ClassRegistry.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace foundation {
namespace {

std::map<std::string, Implementation, std::less<>> bySelector(const std::vector<Method>& methods) {
  std::map<std::string, Implementation, std::less<>> operations;
  for (const auto& method : methods) operations.emplace(method.selector, method.implementation);
  return operations;
}

}  // namespace

Class::Class(Key /*key*/, std::string name, Class* superclass, std::vector<Method> methods,
             const std::vector<Method>& classOperations)
    : _name(std::move(name)),
      _superclass(superclass),
      _classOperations(bySelector(classOperations)),
      _methods(std::move(methods)) {}

std::vector<Method> Class::methodList() const {
  const std::shared_lock lock(_mutex);
  return _methods;
}

Implementation Class::ownMethod(std::string_view selector) const {
  const std::shared_lock lock(_mutex);
  const auto place = std::ranges::find(_methods, selector, &Method::selector);
  return place == _methods.end() ? Implementation() : place->implementation;
}

Implementation Class::instanceMethod(std::string_view selector) const {
  for (const Class* one = this; one != nullptr; one = one->_superclass)
    if (const auto found = one->ownMethod(selector)) return found;
  return {};
}

Implementation Class::classOperation(std::string_view selector) const {
  for (const Class* one = this; one != nullptr; one = one->_superclass) {
    const auto place = one->_classOperations.find(selector);
    if (place != one->_classOperations.end()) return place->second;
  }
  return {};
}

void Class::addCategory(const std::vector<Method>& methods) {
  const std::unique_lock lock(_mutex);
  _methods.insert(_methods.begin(), methods.begin(), methods.end());
}

bool Class::addMethod(std::string_view selector, Implementation implementation) {
  const std::unique_lock lock(_mutex);
  if (std::ranges::find(_methods, selector, &Method::selector) != _methods.end()) return false;
  _methods.push_back({std::string(selector), implementation});
  return true;
}

bool Class::exchangeImplementations(std::string_view selector, std::string_view otherSelector) {
  const std::unique_lock lock(_mutex);
  const auto one = std::ranges::find(_methods, selector, &Method::selector);
  const auto other = std::ranges::find(_methods, otherSelector, &Method::selector);
  if (one == _methods.end() || other == _methods.end()) return false;
  std::swap(one->implementation, other->implementation);
  return true;
}

ClassRegistry& ClassRegistry::shared() {
  static auto* registry = new ClassRegistry;
  return *registry;
}

Class* ClassRegistry::add(std::string name, Class* superclass, std::vector<Method> methods,
                          const std::vector<Method>& classOperations) {
  auto added = std::make_unique<Class>(Class::Key{}, std::move(name), superclass, std::move(methods), classOperations);
  const std::unique_lock lock(_mutex);
  if (!_byName.emplace(added->name(), added.get()).second) return nullptr;
  return _classes.emplace_back(std::move(added)).get();
}

std::vector<Class*> ClassRegistry::classes() const {
  const std::shared_lock lock(_mutex);
  std::vector<Class*> list;
  list.reserve(_classes.size());
  for (const auto& one : _classes) list.push_back(one.get());
  return list;
}

Class* ClassRegistry::classNamed(std::string_view name) const {
  const std::shared_lock lock(_mutex);
  const auto place = _byName.find(name);
  return place == _byName.end() ? nullptr : place->second;
}

}  // namespace foundation
