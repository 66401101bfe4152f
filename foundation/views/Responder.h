#pragma once
// Objects in the responder chain, and references to them that become nullptr when the object is destroyed. Main thread
// only.
#include <memory>

namespace foundation {

template <class T>
class WeakReference;

class Responder {
 public:
  Responder() = default;
  virtual ~Responder() { *_self = nullptr; }
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

  // The next responder in the chain, or nullptr at its end and after that object was destroyed.
  [[nodiscard]] Responder* nextResponder() const { return *_next; }
  virtual void setNextResponder(Responder* responder) { _next = responder == nullptr ? nothing() : responder->_self; }

 private:
  template <class T>
  friend class WeakReference;
  using Liveness = std::shared_ptr<Responder*>;

  static Liveness nothing() { return std::make_shared<Responder*>(nullptr); }

  Liveness _self = std::make_shared<Responder*>(this);
  Liveness _next = nothing();
};

// Does not keep its object alive. T is a class derived from Responder, and complete where get() is called.
template <class T>
class WeakReference {
 public:
  WeakReference() = default;
  WeakReference(T* object) : _object(object == nullptr ? nullptr : object->_self) {}

  // Returns nullptr for an empty reference and after the object was destroyed.
  [[nodiscard]] T* get() const { return _object == nullptr ? nullptr : static_cast<T*>(*_object); }

 private:
  Responder::Liveness _object;
};

}  // namespace foundation
