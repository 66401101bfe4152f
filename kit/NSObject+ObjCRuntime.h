#pragma once
// Exchange of method implementations, and finding the one that is running by its place in the code, on the registered
// classes of foundation/runtime/ClassRegistry.h.
//
// The look-ups may be called on any thread. An exchange changes the class for all threads: do it once, early.
#include <string_view>

#include "foundation/runtime/ClassRegistry.h"

namespace NSObject::ObjCRuntime {

// Exchanges two instance methods of `receiver`; false, and nothing changed, when it has not both. What it only inherits is
// added to it first, so that its superclasses stay as they are.
bool swizzleSelector_toSelector(foundation::Class& receiver, std::string_view selector, std::string_view otherSelector);

// The implementation of `selector`, of those of the object's class and its superclasses, whose entry lies closest below the
// place that this is called from; an empty one when there is none. It is the caller itself when the caller is one of them,
// and its code lies in one piece behind its entry.
foundation::Implementation impOfCallingMethod(const foundation::Object& object, std::string_view selector);

// The implementation that follows the running one in the method lists: the one that it replaced; an empty one when there is
// none. The running one is the one whose entry lies closest below the code of this very operation, so this serves programs
// in which that is the replacing method of a category.
foundation::Implementation getOriginalImplementationOfMethod(const foundation::Object& object, std::string_view selector);

}  // namespace NSObject::ObjCRuntime
