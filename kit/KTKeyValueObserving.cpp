#include "kit/KTKeyValueObserving.h"

#include <utility>

void KTKeyValueObserving::waitForKeyPath_object_completion(std::string_view keyPath,
                                                           std::shared_ptr<foundation::KeyValueObservable> object,
                                                           std::function<void()> completion) {
  std::make_shared<KTKeyValueObserving>()->beginWaitingForKeyPath_object_completion(keyPath, std::move(object),
                                                                                    std::move(completion));
}

void KTKeyValueObserving::beginWaitingForKeyPath_object_completion(std::string_view keyPath,
                                                                   std::shared_ptr<foundation::KeyValueObservable> object,
                                                                   std::function<void()> completion) {
  _retainLock = shared_from_this();
  _observedObject = std::move(object);
  _completion = std::move(completion);
  if (_observedObject) _observedObject->addObserver_forKeyPath_context(*this, keyPath);
}

void KTKeyValueObserving::observeValueForKeyPath_ofObject_change_context(std::string_view keyPath,
                                                                         foundation::KeyValueObservable& object,
                                                                         const foundation::KeyValueChange& /*change*/,
                                                                         void* /*context*/) {
  const auto self = shared_from_this();
  // Take the completion first: if it changes the value again, the nested notification must not run it a second time.
  if (const auto completion = std::exchange(_completion, nullptr)) completion();
  object.removeObserver_forKeyPath(*this, keyPath);
  _observedObject.reset();
  _retainLock.reset();
}
