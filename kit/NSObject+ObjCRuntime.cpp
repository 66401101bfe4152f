#include "kit/NSObject+ObjCRuntime.h"

#include <cstdint>

namespace NSObject::ObjCRuntime {
namespace {

using foundation::Class;
using foundation::Implementation;

// The implementations of a selector in the order of the method lists: the class's own list, then each superclass's.
std::vector<Implementation> implementationsOf(const Class* one, std::string_view selector) {
  std::vector<Implementation> found;
  for (; one != nullptr; one = one->superclass())
    for (const auto& method : one->methodList())
      if (method.selector == selector) found.push_back(method.implementation);
  return found;
}

}  // namespace

bool swizzleSelector_toSelector(Class& receiver, std::string_view selector, std::string_view otherSelector) {
  const Implementation one = receiver.instanceMethod(selector);
  const Implementation other = receiver.instanceMethod(otherSelector);
  if (!one || !other) return false;
  receiver.addMethod(selector, one);
  receiver.addMethod(otherSelector, other);
  return receiver.exchangeImplementations(selector, otherSelector);
}

namespace detail {

// Never part of its caller's code, or it would return to another place.
[[gnu::noinline]] Implementation closestBelowCaller(const foundation::Object& object, std::string_view selector) {
  const auto position = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
  Implementation closest;
  for (const auto& implementation : implementationsOf(object.registeredClass(), selector))
    if (implementation.address() < position && implementation.address() >= closest.address()) closest = implementation;
  return closest;
}

Implementation successor(const foundation::Object& object, std::string_view selector, const Implementation& current) {
  if (!current) return {};
  bool isCurrentSeen = false;
  for (const auto& implementation : implementationsOf(object.registeredClass(), selector)) {
    if (!(implementation == current) && isCurrentSeen) return implementation;
    isCurrentSeen = implementation == current;
  }
  return {};
}

}  // namespace detail
}  // namespace NSObject::ObjCRuntime
