// The fakes of the run loop, the window and the application, held to the contracts.
#include <deque>

#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"
#include "tests/platform/contracts/RunLoopContract.h"
#include "tests/platform/contracts/UserInterfaceContract.h"
#include "tests/platform/contracts/ViewResourcesContract.h"

using namespace tests::contracts;
using platform::fake::FakeRunLoop;

namespace {

class FakeLoop {
 public:
  foundation::RunLoop& runLoop() { return _runLoop; }
  template <class Condition>
  bool waitFor(Condition condition) {
    for (int step = 0; step < 1000 && !condition(); ++step) pass(Seconds(0.001));
    return condition();
  }
  void pass(Seconds duration) { _runLoop.advance(duration); }
  void beBusy(Seconds duration) { _clock.advance(duration); }
  void pause() { _pause.emplace(_runLoop); }
  void resume() { _pause.reset(); }

 private:
  platform::fake::FakeClock _clock;
  FakeRunLoop _runLoop{_clock};
  std::optional<FakeRunLoop::Pause> _pause;
};

class FakeInterface {
 public:
  FakeInterface() {
    _parts.application.delegate = &_delegate;
    _parts.notificationCenter.addObserver(foundation::applicationWillTerminateNotification,
                                          [this](const foundation::Notification&) { _trace += "notification "; });
  }

  platform::Application& application() { return _parts.application; }
  foundation::RunLoop& runLoop() { return _parts.runLoop; }
  platform::Window& window() { return _window; }
  platform::TextField& textField() { return _textField; }
  platform::Button& button() { return _button; }
  platform::ProgressIndicator& progressIndicator() { return _progressIndicator; }
  [[nodiscard]] foundation::Size screen() const { return _window.screen; }
  [[nodiscard]] bool isShown() const { return _window.isKey; }
  [[nodiscard]] std::string titleOfWindow() const { return _window.title; }
  [[nodiscard]] std::string text() const { return _textField.text; }
  [[nodiscard]] std::string titleOfButton() const { return _button.title; }
  [[nodiscard]] bool isAnimating() const { return _progressIndicator.isAnimating; }
  [[nodiscard]] std::string trace() const { return _trace; }
  void whileAlertIsUp(std::function<void()> action) {
    _parts.application.whileAlertIsUp = [action = std::move(action)](const platform::Alert&) { action(); };
  }
  void settle() { _parts.runLoop.advance(Seconds(0.1)); }

 private:
  struct Delegate final : platform::ApplicationDelegate {
    explicit Delegate(std::string& text) : text(text) {}
    void connectOutlet(std::string_view /*name*/, const std::shared_ptr<platform::InterfaceElement>& /*element*/) override {
    }
    void applicationDidFinishLaunching(const foundation::Notification& /*notification*/) override {}
    void applicationWillTerminate(const foundation::Notification& /*notification*/) override { text += "delegate "; }
    std::string& text;
  };

  std::string _trace;
  Delegate _delegate{_trace};
  platform::fake::FakeParts _parts;
  platform::fake::FakeWindow _window;
  platform::fake::FakeTextField _textField;
  platform::fake::FakeButton _button;
  platform::fake::FakeProgressIndicator _progressIndicator;
};

class FakeViews {
 public:
  FakeViews() {
    _resources.addImage("dot", {10, 6});
    _resources.nibs["Settings"] = [](foundation::ViewController& owner) {
      const auto view = std::make_shared<foundation::View>(foundation::Rect{{0, 0}, {300, 200}});
      const auto face = std::make_shared<foundation::View>();
      view->addSubview(face);
      owner.connectOutlet("face", face);
      return view;
    };
    _resources.nibs["Broken"] = [](foundation::ViewController&) { return nullptr; };
  }
  foundation::ViewResources& resources() { return _resources; }
  foundation::ViewEnvironment& environment() { return _fakes.platform.views; }

 private:
  platform::fake::FakePlatform _fakes;
  platform::fake::FakeViewResources _resources;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, RunLoopContract, FakeLoop);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, UserInterfaceContract, FakeInterface);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ViewResourcesContract, FakeViews);

TEST(FakeRunLoop, WhileTheMainThreadIsBusyTheClockMovesAndNothingRuns) {
  platform::fake::FakeParts parts;
  bool hasRun = false;
  parts.runLoop.performAfterDelay(Seconds(1), nullptr, [&] { hasRun = true; });
  const auto before = parts.runLoop.currentDate();
  parts.clock.advance(Seconds(5));
  EXPECT_EQ(parts.runLoop.currentDate() - before, std::chrono::seconds(5));
  EXPECT_FALSE(hasRun);
  parts.runLoop.runPending();
  EXPECT_TRUE(hasRun);
}

TEST(CallJournal, HoldsTheCallsToAllPartsInTheirOrder) {
  platform::fake::FakeParts parts;
  parts.shell.system("true");
  parts.files.createFileAtPath("/tmp/a", {});
  parts.workspace.launchApplication("/A.app", 0, nullptr);
  EXPECT_EQ(parts.journal.calls(), (std::vector<std::string>{"shell.system true", "fileManager.createFileAtPath /tmp/a",
                                                             "workspace.launchApplication /A.app"}));
}
