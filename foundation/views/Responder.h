#pragma once
// Objects in the responder chain, and references to them that turn to nothing when the object goes. Main thread only.
#include <memory>

namespace platform {

template <class T>
class WeakReference;

class Responder {
 public:
  Responder() = default;
  virtual ~Responder() { *_self = nullptr; }
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

  // Who is asked when this responder does not answer; nullptr at the end of the chain and when that object has gone.
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

  // nullptr when there is none or when it has gone.
  [[nodiscard]] T* get() const { return _object == nullptr ? nullptr : static_cast<T*>(*_object); }

 private:
  Responder::Liveness _object;
};

}  // namespace platform
