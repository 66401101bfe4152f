#pragma once
// Exchange of method implementations, and finding the one that is running by its position in the code, on the registered
// classes of foundation/runtime/ClassRegistry.h.
//
// The look-ups may be called on any thread. An exchange changes the class for all threads: do it once, early.
//
// A look-up compares the position of its call with the entries of functions, so it must know the position whatever the
// optimiser does. Both look-ups are therefore compiled into their caller: a copy of their own would lie wherever link-time
// optimisation puts it. The caller's code must lie in one piece behind its entry. A method that looks itself up is
// therefore called through its registered implementation; if other code calls it by name, mark it [[gnu::noinline]], and at
// -O3
// [[gnu::noclone]].
#include <atomic>
#include <string_view>

#include "foundation/runtime/ClassRegistry.h"

namespace NSObject::ObjCRuntime {

// Exchanges two instance methods of `receiver`. Returns false, and changes nothing, unless it has both. Inherited methods
// are first added to the receiver itself, so that its superclasses stay as they are.
bool swizzleSelector_toSelector(foundation::Class& receiver, std::string_view selector, std::string_view otherSelector);

namespace detail {

// The implementation of `selector` whose entry lies closest below the place that this returns to.
foundation::Implementation closestBelowCaller(const foundation::Object& object, std::string_view selector);
// The implementation that follows `current` in the method lists.
foundation::Implementation successor(const foundation::Object& object, std::string_view selector,
                                     const foundation::Implementation& current);

}  // namespace detail

// Of the implementations of `selector` in the object's class and its superclasses, the one whose entry lies closest below
// the call; an empty one if no entry lies below it. A method that calls this finds itself.
[[gnu::always_inline]] inline foundation::Implementation impOfCallingMethod(const foundation::Object& object,
                                                                            std::string_view selector) {
  const foundation::Implementation found = detail::closestBelowCaller(object, selector);
  // The call must not be the last action of the caller: it would become a jump, and return to the caller's caller.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  return found;
}

// The implementation that follows the running one in the method lists: the one that a category replaced; an empty one if
// there is no other. The running one is the one whose entry lies closest below this operation's code.
[[gnu::always_inline]] inline foundation::Implementation getOriginalImplementationOfMethod(const foundation::Object& object,
                                                                                           std::string_view selector) {
  return detail::successor(object, selector, impOfCallingMethod(object, selector));
}

}  // namespace NSObject::ObjCRuntime
