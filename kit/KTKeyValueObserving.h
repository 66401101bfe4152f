#pragma once
// Waits once for a change, and cleans up after itself.
//
// The completion runs on the thread that makes the change. Nothing is locked: one waiter must not be fired from two threads
// at once.
#include <functional>
#include <memory>
#include <string_view>

#include "foundation/runtime/KeyValueObserving.h"

class KTKeyValueObserving final : public foundation::KeyValueObserver,
                                  public std::enable_shared_from_this<KTKeyValueObserving> {
 public:
  // Runs `completion` (nothing when it is empty) at the first change of `keyPath` of `object`. Nobody needs to hold the
  // waiter: it keeps itself and the object alive until then, for ever when no change comes, and lets go of both afterwards.
  // No object never changes.
  static void waitForKeyPath_object_completion(std::string_view keyPath,
                                               std::shared_ptr<foundation::KeyValueObservable> object,
                                               std::function<void()> completion);

  // The same on a waiter of one's own, which lives in a shared_ptr and is used once.
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
