#pragma once
// A one-shot observer: runs a callback at the first change of a key path, then cleans up after itself.
//
// The callback runs on the thread that makes the change. The class takes no lock, so two threads must not fire one waiter
// at the same time.
#include <functional>
#include <memory>
#include <string_view>

#include "foundation/runtime/KeyValueObserving.h"

class KTKeyValueObserving final : public foundation::KeyValueObserver,
                                  public std::enable_shared_from_this<KTKeyValueObserving> {
 public:
  // Runs `completion`, which may be empty, at the first change of `keyPath` of `object`. The waiter keeps itself and the
  // object alive until then, for the rest of the process if no change comes, and releases both after the callback. Without
  // an object it waits forever.
  static void waitForKeyPath_object_completion(std::string_view keyPath,
                                               std::shared_ptr<foundation::KeyValueObservable> object,
                                               std::function<void()> completion);

  // The same for a waiter that the caller made. It lives in a shared_ptr and can be used once.
  void beginWaitingForKeyPath_object_completion(std::string_view keyPath,
                                                std::shared_ptr<foundation::KeyValueObservable> object,
                                                std::function<void()> completion);

  void observeValueForKeyPath_ofObject_change_context(std::string_view keyPath, foundation::KeyValueObservable& object,
                                                      const foundation::KeyValueChange& change, void* context) override;

 private:
  std::shared_ptr<KTKeyValueObserving> _retainLock;
  std::shared_ptr<foundation::KeyValueObservable> _observedObject;
  std::function<void()> _completion;
};
