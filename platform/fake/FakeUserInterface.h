#pragma once
// A window and its elements that record what they are told, and an application whose alerts are dismissed at once. One
// thread.
#include "platform/UserInterface.h"
#include "platform/fake/CallJournal.h"
#include "platform/fake/FakeRunLoop.h"

namespace platform::fake {

class FakeWindow final : public Window, public Journaled {
 public:
  using Journaled::Journaled;

  [[nodiscard]] foundation::Rect frame() const override { return currentFrame; }
  void setFrame(const foundation::Rect& frame, bool display) override;
  void setFrameOrigin(foundation::Point origin) override;
  void center() override;
  void setTitle(std::string_view text) override;
  void makeKeyAndOrderFront() override;

  foundation::Rect currentFrame{{10, 20}, {400, 250}};
  foundation::Size screen{1280, 1024};
  bool isCentered = false;
  bool isKey = false;
  std::string title;
  std::vector<bool> displays;  // the redisplay flag of every setFrame
};

class FakeTextField final : public TextField, public Journaled {
 public:
  using Journaled::Journaled;
  void setStringValue(std::string_view value) override;
  std::string text;
};

class FakeButton final : public Button, public Journaled {
 public:
  using Journaled::Journaled;
  void setTitle(std::string_view value) override;
  std::string title;
};

class FakeProgressIndicator final : public ProgressIndicator, public Journaled {
 public:
  using Journaled::Journaled;
  void setUsesThreadedAnimation(bool threaded) override { usesThreadedAnimation = threaded; }
  void startAnimation() override;
  bool usesThreadedAnimation = false;
  bool isAnimating = false;
};

// Alerts are recorded. Termination runs the will-terminate steps.
class FakeApplication final : public Application, public Journaled {
 public:
  FakeApplication(foundation::NotificationCenter& center, FakeRunLoop& runLoop, CallJournal* journal = nullptr)
      : Journaled(journal), _center(center), _runLoop(runLoop) {}
  void runModal(const Alert& alert) override;
  void terminate(const void* sender) override;

  ApplicationDelegate* delegate = nullptr;  // told of termination when set
  std::vector<Alert> alerts;
  std::function<void(const Alert&)> whileAlertIsUp;  // runs inside runModal
  bool isTerminated = false;
  std::vector<const void*> terminateSenders;

 private:
  foundation::NotificationCenter& _center;
  FakeRunLoop& _runLoop;
};

}  // namespace platform::fake
