// The run loop, the window, the application and the view resources on a real display, held to the contracts.
#include <QDialog>
#include <QElapsedTimer>
#include <QPushButton>
#include <QScreen>
#include <QTemporaryDir>
#include <fstream>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/QtApplication.h"
#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/QtRunLoop.h"
#include "platform/linux/qt/QtViewResources.h"
#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/contracts/RunLoopContract.h"
#include "tests/platform/contracts/UserInterfaceContract.h"
#include "tests/platform/contracts/ViewResourcesContract.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace tests::contracts;
using platform::Linux::QtRunLoop;

namespace {

class QtLoop {
 public:
  foundation::RunLoop& runLoop() { return _runLoop; }
  template <class Condition>
  bool waitFor(Condition condition) {
    return tests::spinUntil(condition);
  }
  void pass(Seconds duration) {
    QElapsedTimer elapsed;
    elapsed.start();
    tests::spinUntil([&] { return Seconds(std::chrono::nanoseconds(elapsed.nsecsElapsed())) >= duration; });
  }
  void beBusy(Seconds duration) {
    QElapsedTimer elapsed;
    elapsed.start();
    while (Seconds(std::chrono::nanoseconds(elapsed.nsecsElapsed())) < duration) {
    }
  }
  void pause() { _pause.emplace(_runLoop); }
  void resume() { _pause.reset(); }

 private:
  QtRunLoop _runLoop;
  std::optional<QtRunLoop::Pause> _pause;
};

// An application that has been launched, with a window of its own beside the loaded one.
class QtInterface {
 public:
  QtInterface() {
    std::ofstream(document()) << R"(<ui version="4.0"><widget class="QWidget" name="window">
      <property name="delegateClass" stdset="0"><string>TestDelegate</string></property></widget></ui>)";
    _parts.notificationCenter.addObserver(foundation::applicationWillTerminateNotification,
                                          [this](const foundation::Notification&) { _trace += "notification "; });
    const platform::DelegateClass delegate{"TestDelegate",
                                           [this](platform::Platform&) { return std::make_unique<Delegate>(_trace); }};
    EXPECT_EQ(_application.run(_platform, document(), {delegate}), 0);
  }
  // A call of exit() outside a run would end the next event loop at once; this run uses it up.
  ~QtInterface() {
    QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(0); });
    QCoreApplication::exec();
  }
  QtInterface(const QtInterface&) = delete;
  QtInterface& operator=(const QtInterface&) = delete;

  platform::Application& application() { return _application; }
  foundation::RunLoop& runLoop() { return _runLoop; }
  platform::Window& window() { return _window; }
  platform::TextField& textField() { return _textField; }
  platform::Button& button() { return _button; }
  platform::ProgressIndicator& progressIndicator() { return _progressIndicator; }
  [[nodiscard]] static foundation::Size screen() {
    const QRect place = QGuiApplication::primaryScreen()->availableGeometry();
    return {static_cast<double>(place.width()), static_cast<double>(place.height())};
  }
  [[nodiscard]] bool isShown() const { return _windowWidget.isVisible(); }
  [[nodiscard]] std::string titleOfWindow() const { return _windowWidget.windowTitle().toStdString(); }
  [[nodiscard]] std::string text() const { return _label.text().toStdString(); }
  // The button doubles an ampersand to show it.
  [[nodiscard]] std::string titleOfButton() const { return _pushButton.text().replace("&&", "&").toStdString(); }
  [[nodiscard]] bool isAnimating() const { return _progressBar.isAnimating(); }
  [[nodiscard]] std::string trace() const { return _trace; }

  void whileAlertIsUp(std::function<void()> action) {
    QObject::connect(&_alertWatch, &QTimer::timeout, &_alertWatch, [this, action = std::move(action)] {
      auto* alert = qobject_cast<QDialog*>(QApplication::activeModalWidget());
      if (alert == nullptr) return;
      _alertWatch.stop();
      action();
      alert->reject();
    });
    _alertWatch.start(2);
  }
  void settle() {
    bool isOver = false;
    QTimer::singleShot(30, &_alertWatch, [&] { isOver = true; });
    EXPECT_TRUE(tests::spinUntil([&] { return isOver; }));
  }

 private:
  struct Delegate final : platform::ApplicationDelegate {
    explicit Delegate(std::string& text) : text(text) {}
    void connectOutlet(std::string_view /*name*/, const std::shared_ptr<platform::InterfaceElement>& /*element*/) override {
    }
    void applicationDidFinishLaunching(const foundation::Notification& /*notification*/) override {
      QCoreApplication::exit(0);
    }
    void applicationWillTerminate(const foundation::Notification& /*notification*/) override { text += "delegate "; }
    std::string& text;
  };

  [[nodiscard]] std::string document() const { return _folder.filePath("MainWindow.ui").toStdString(); }

  QTemporaryDir _folder;
  std::string _trace;
  platform::fake::FakeParts _parts;
  QtRunLoop _runLoop;
  platform::Linux::QtApplication _application{_runLoop, _parts.notificationCenter, "Test"};
  platform::Platform _platform = platform::fake::platformOf(_parts, {.application = &_application, .runLoop = &_runLoop});
  platform::Linux::WindowWidget _windowWidget;
  QLabel _label;
  QPushButton _pushButton;
  platform::Linux::ProgressBarWidget _progressBar{nullptr};
  platform::Linux::QtWindow _window{_windowWidget};
  platform::Linux::QtTextField _textField{_label};
  platform::Linux::QtButton _button{_pushButton};
  platform::Linux::QtProgressIndicator _progressIndicator{_progressBar};
  QTimer _alertWatch;
};

class QtViews {
 public:
  QtViews() {
    const QString image = _folder.filePath("dot.png");
    EXPECT_TRUE(QImage(10, 6, QImage::Format_ARGB32).save(image));
    _bundle.resources["artwork/dot.png"] = image.toStdString();
    write("Settings", R"(<ui version="4.0"><widget class="View" name="settings">
      <property name="geometry"><rect><x>0</x><y>0</y><width>300</width><height>200</height></rect></property>
      <widget class="View" name="face"/></widget></ui>)");
    write("Broken", R"(<ui version="4.0"><widget class="View" name="x">)");
  }
  foundation::ViewResources& resources() { return _resources; }
  foundation::ViewEnvironment& environment() { return _fakes.platform.views; }

 private:
  void write(const std::string& name, const std::string& document) {
    const std::string path = _folder.filePath(QString::fromStdString(name + ".ui")).toStdString();
    std::ofstream(path) << document;
    _bundle.resources[name + ".ui"] = path;
  }

  QTemporaryDir _folder;
  platform::fake::FakePlatform _fakes;
  platform::fake::FakeBundle _bundle;
  platform::Linux::QtViewResources _resources{
      _bundle, {_fakes.runLoop, {{"View", [] { return std::make_shared<foundation::View>(); }}}}, [] {}};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, RunLoopContract, QtLoop);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, UserInterfaceContract, QtInterface);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, ViewResourcesContract, QtViews);
