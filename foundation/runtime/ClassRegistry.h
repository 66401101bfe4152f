#pragma once
// Classes that can be asked at run time: their names, superclasses and methods by selector.
//
// A class registers itself once, early (a namespace-scope call of `ClassRegistry::shared().add(...)` in its own file), and
// stays for the life of its registry. Any thread. The compiler's own dispatch is not affected: a caller that wants the
// registered implementation asks for it and calls it.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <typeindex>
#include <vector>

#include "foundation/Api.h"

namespace foundation {

// The code of one method: the address of a function, and its signature as type encoding. Two are equal when their addresses
// are. Takes named functions, not lambdas: look-ups compare positions in the code with the address.
class Implementation {
 public:
  Implementation() = default;
  template <class Result, class... Arguments>
  Implementation(Result (*function)(Arguments...))
      : _code(reinterpret_cast<Code>(function)), _encoding(typeid(Result(Arguments...))) {}

  // The function, when its signature is exactly `Signature`; nullptr otherwise.
  template <class Signature>
  [[nodiscard]] Signature* as() const {
    return _encoding == typeid(Signature) ? reinterpret_cast<Signature*>(_code) : nullptr;
  }

  [[nodiscard]] std::uintptr_t address() const { return reinterpret_cast<std::uintptr_t>(_code); }
  [[nodiscard]] std::type_index encoding() const { return _encoding; }
  explicit operator bool() const { return _code != nullptr; }
  bool operator==(const Implementation& other) const { return _code == other._code; }

 private:
  using Code = void (*)();
  Code _code = nullptr;
  std::type_index _encoding = typeid(void);
};

struct Method {
  std::string selector;
  Implementation implementation;
};

class KELTO_API Class {
  friend class ClassRegistry;
  struct Key {};

 public:
  // For registries only.
  Class(Key, std::string name, Class* superclass, std::vector<Method> methods, const std::vector<Method>& classOperations);

  [[nodiscard]] const std::string& name() const { return _name; }
  [[nodiscard]] Class* superclass() const { return _superclass; }

  // The class's own list, superclasses excluded: the methods of its categories, the latest category first, then its own. A
  // copy, as the list is now.
  [[nodiscard]] std::vector<Method> methodList() const;
  // The first implementation of `selector` in this class's list, else in the nearest superclass's; an empty one if no
  // class has it.
  [[nodiscard]] Implementation instanceMethod(std::string_view selector) const;
  // The same for operations of the class itself.
  [[nodiscard]] Implementation classOperation(std::string_view selector) const;

  // Puts the methods of a category before all others.
  void addCategory(const std::vector<Method>& methods);
  // Adds a method to this class itself; returns false, and does nothing, if its own list already has the selector.
  bool addMethod(std::string_view selector, Implementation implementation);
  // Exchanges the implementations of two methods of this class's own list, each with its signature; returns false,
  // and does nothing, if the list lacks one of them.
  bool exchangeImplementations(std::string_view selector, std::string_view otherSelector);

 private:
  [[nodiscard]] Implementation ownMethod(std::string_view selector) const;

  const std::string _name;
  Class* const _superclass;
  const std::map<std::string, Implementation, std::less<>> _classOperations;
  mutable std::shared_mutex _mutex;
  std::vector<Method> _methods;
};

// The root of the objects that know their class.
class Object {
 public:
  virtual ~Object() = default;
  // nullptr for an object without a registered class.
  [[nodiscard]] virtual Class* registeredClass() const = 0;
};

class KELTO_API ClassRegistry {
 public:
  ClassRegistry() = default;
  ClassRegistry(const ClassRegistry&) = delete;
  ClassRegistry& operator=(const ClassRegistry&) = delete;

  // The registry of the process; never destroyed. Others are for tests.
  static ClassRegistry& shared();

  // Registers a class; returns nullptr, and does nothing, if the name is taken. The superclass lives in the same registry,
  // or is nullptr for a root. The registry owns the class.
  Class* add(std::string name, Class* superclass, std::vector<Method> methods,
             const std::vector<Method>& classOperations = {});

  // Every class, in the order of registration.
  [[nodiscard]] std::vector<Class*> classes() const;
  // nullptr if no class has that name.
  [[nodiscard]] Class* classNamed(std::string_view name) const;

 private:
  mutable std::shared_mutex _mutex;
  std::vector<std::unique_ptr<Class>> _classes;
  std::map<std::string_view, Class*> _byName;  // the names are those of _classes
};

}  // namespace foundation
