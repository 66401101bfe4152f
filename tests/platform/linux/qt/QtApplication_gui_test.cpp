#include "platform/linux/qt/QtApplication.h"

#include <QDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <fstream>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/QtBlockingCall.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;
using tests::outputOf;

namespace {

struct QtApplicationTest : testing::Test {
  // A delegate that runs what the test says.
  struct Delegate final : ApplicationDelegate {
    explicit Delegate(QtApplicationTest& test) : test(test) {}
    void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element) override {
      test.trace += "outlet ";
      if (name == "window") window = element;
    }
    void applicationDidFinishLaunching(const Notification& notification) override {
      test.trace += notification.name + " ";
      test.onLaunch();
    }
    void applicationWillTerminate(const Notification& notification) override {
      test.trace += "delegate:" + notification.name + " ";
      if (test.onTermination) test.onTermination();
    }
    QtApplicationTest& test;
    std::weak_ptr<InterfaceElement> window;
  };

  QtApplicationTest() {
    fakes.notificationCenter.addObserver(applicationWillTerminateNotification,
                                         [this](const Notification&) { trace += "notification "; });
    writeDocument("TestDelegate");
  }

  void writeDocument(const std::string& delegateClass) {
    std::ofstream(path()) << R"(<ui version="4.0"><widget class="QWidget" name="window">
      <property name="delegateClass" stdset="0"><string>)"
                          << delegateClass << R"(</string></property>
      <widget class="QPushButton" name="cancelButton"><property name="action" stdset="0"><string>terminate:</string>
      </property></widget></widget></ui>)";
  }

  [[nodiscard]] std::string path() const { return folder.filePath("MainWindow.ui").toStdString(); }

  int run() { return application.run(platform, path(), classes); }

  void showWindow() {
    if (auto window = std::dynamic_pointer_cast<Window>(delegate->window.lock())) window->makeKeyAndOrderFront();
  }

  QTemporaryDir folder;
  fake::FakeParts fakes;
  QtRunLoop runLoop;
  QtBlockingCall blockingCall{runLoop};
  QtApplication application{runLoop, fakes.notificationCenter, "Kelto Installer"};
  Platform platform = fake::platformOf(fakes, {.application = &application, .runLoop = &runLoop});
  Delegate* delegate = nullptr;
  std::vector<DelegateClass> classes{{"TestDelegate", [this](Platform&) {
                                        auto made = std::make_unique<Delegate>(*this);
                                        delegate = made.get();
                                        return made;
                                      }}};
  std::string trace;
  std::function<void()> onLaunch;
  std::function<void()> onTermination;
};

TEST_F(QtApplicationTest, ConnectsOutletsThenFinishesLaunchingThenRunsUntilTheEnd) {
  onLaunch = [this] { runLoop.performAfterDelay(Seconds(0), this, [this] { application.terminate(this); }); };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(trace,
            "outlet outlet NSApplicationDidFinishLaunchingNotification "
            "delegate:NSApplicationWillTerminateNotification notification ");
}

TEST_F(QtApplicationTest, FinishesLaunchingBeforeEverythingElseThatWaitsForTheEventLoop) {
  onLaunch = [this] { runLoop.performAfterDelay(Seconds(0), this, [this] { application.terminate(this); }); };
  QMetaObject::invokeMethod(
      qApp, [this] { trace += "waiting "; }, Qt::QueuedConnection);
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(trace,
            "outlet outlet NSApplicationDidFinishLaunchingNotification waiting "
            "delegate:NSApplicationWillTerminateNotification notification ");
}

TEST_F(QtApplicationTest, TerminatesOnceOnly) {
  onLaunch = [this] {
    runLoop.performAfterDelay(Seconds(0), this, [this] {
      trace.clear();
      application.terminate(this);
      application.terminate(nullptr);
    });
  };
  onTermination = [this] { application.terminate(this); };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(trace, "delegate:NSApplicationWillTerminateNotification notification ");
}

TEST_F(QtApplicationTest, TerminatingWhileLaunchingEndsTheRunToo) {
  onLaunch = [this] { application.terminate(this); };
  EXPECT_EQ(run(), 0);
}

TEST_F(QtApplicationTest, NothingFiresAfterTermination) {
  bool hasFired = false;
  onLaunch = [&] {
    runLoop.performAfterDelay(Seconds(0), this, [this] { application.terminate(this); });
    runLoop.performAfterDelay(Seconds(0), this, [&] { hasFired = true; });
  };
  EXPECT_EQ(run(), 0);
  EXPECT_FALSE(hasFired);
}

TEST_F(QtApplicationTest, ABlockingCallDuringTerminationIsCompleted) {
  bool isCompleted = false;
  onLaunch = [this] { runLoop.performAfterDelay(Seconds(0), this, [this] { application.terminate(this); }); };
  onTermination = [&] { blockingCall.run([&] { isCompleted = true; }); };
  EXPECT_EQ(run(), 0);
  EXPECT_TRUE(isCompleted);
}

TEST_F(QtApplicationTest, TerminatingUnderANestedEventLoopLeavesItToo) {
  onLaunch = [this] {
    runLoop.performAfterDelay(Seconds(0), this, [this] {
      QEventLoop nested;
      QTimer::singleShot(0, &nested, [this] { application.terminate(this); });
      nested.exec();
      trace += "left ";
    });
  };
  EXPECT_EQ(run(), 0);
  EXPECT_TRUE(trace.ends_with("left "));
}

TEST_F(QtApplicationTest, ARequestDuringABlockingCallIsIgnored) {
  onLaunch = [this] {
    showWindow();
    QTimer::singleShot(0, qApp, [this] {
      EXPECT_TRUE(spinUntil([] { return QApplication::activeWindow() != nullptr; }));
      QTimer::singleShot(0, qApp, [this] { application.terminateOnRequest(); });
      blockingCall.run([] { outputOf("xdotool key alt+F4"); });
      EXPECT_EQ(trace.find("delegate:"), std::string::npos);
      application.terminateOnRequest();
    });
  };
  EXPECT_EQ(run(), static_cast<int>(Ending::cancelled));
  EXPECT_NE(trace.find("delegate:"), std::string::npos);
}

// Long before the ten seconds that a test waits for an alert to be dismissed.
TEST_F(QtApplicationTest, ASignalClosesTheAlertAndNoOtherIsShown) {
  onLaunch = [this] {
    QTimer::singleShot(0, qApp, [this] {
      EXPECT_TRUE(spinUntil([] { return QApplication::activeModalWidget() != nullptr; }));
      application.terminateOnSignal("SIGTERM");
    });
    application.runModal({"Headline", "Text", "OK"});
    application.runModal({"Another", "Text", "OK"});
    EXPECT_EQ(trace.find("delegate:"), std::string::npos) << "the delegate goes on first";
  };
  EXPECT_EQ(run(), static_cast<int>(Ending::cancelled));
  EXPECT_NE(trace.find("delegate:"), std::string::npos);
}

TEST_F(QtApplicationTest, AnAlertReportsWhatWasExpectedAndTellsOfTheFailureBeforeItIsShown) {
  std::string seen;
  application.onFailure = [&] {
    seen += QApplication::activeModalWidget() == nullptr ? "before " : "after ";
    seen += platform.report.failure() ? "reported" : "unreported";
  };
  onLaunch = [this] {
    platform.report.expect({Ending::stillRunning, "quit", "/App.app", "it still runs"});
    QTimer::singleShot(0, qApp, [] {
      EXPECT_TRUE(spinUntil([] { return QApplication::activeModalWidget() != nullptr; }));
      QApplication::activeModalWidget()->close();
    });
    application.runModal({"Headline", "Text", "OK"});
    application.terminate(this);
  };
  EXPECT_EQ(run(), static_cast<int>(Ending::stillRunning));
  EXPECT_EQ(seen, "before reported");
}

TEST_F(QtApplicationTest, WhileAJobRunsTheButtonThatTerminatesIsDisabled) {
  onLaunch = [this] {
    showWindow();
    const auto isEnabled = [] {
      const auto* button = QApplication::topLevelWidgets().front()->window()->findChild<QPushButton*>("cancelButton");
      return button != nullptr && button->isEnabled();
    };
    EXPECT_TRUE(isEnabled());
    application.setJobRuns(true);
    EXPECT_FALSE(isEnabled());
    application.setJobRuns(false);
    EXPECT_TRUE(isEnabled());
    application.terminate(this);
  };
  EXPECT_EQ(run(), 0);
}

TEST_F(QtApplicationTest, NothingFiresUnderAnAlertAndAllFiresAfterwards) {
  std::string firedUnderAlert = "not looked";
  std::string fired;
  onLaunch = [&] {
    runLoop.performAfterDelay(Seconds(0.001), this, [&] { fired += 'a'; });
    runLoop.performAfterDelay(Seconds(0.002), this, [&] {
      fired += 'b';
      application.terminate(this);
    });
    QTimer::singleShot(0, qApp, [&] {
      EXPECT_TRUE(spinUntil([] {
        auto* modal = QApplication::activeModalWidget();
        return modal != nullptr && modal->isActiveWindow();
      }));
      application.terminateOnRequest();
      firedUnderAlert = fired;
      doUntil("xdotool key Return", [] { return QApplication::activeModalWidget() == nullptr; });
    });
    application.runModal({"Headline", "Text", "OK"});
    EXPECT_EQ(fired, "");
  };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(firedUnderAlert, "");
  EXPECT_EQ(fired, "ab");
}

TEST_F(QtApplicationTest, NoAlertIsShownAfterTermination) {
  struct ShownDialogs final : QObject {
    bool eventFilter(QObject* object, QEvent* event) override {
      if (event->type() == QEvent::Show && qobject_cast<QDialog*>(object) != nullptr) ++count;
      return false;
    }
    int count = 0;
  } dialogs;
  qApp->installEventFilter(&dialogs);
  onLaunch = [this] {
    application.terminate(this);
    application.runModal({"Headline", "Text", "OK"});
  };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(dialogs.count, 0);
}

TEST_F(QtApplicationTest, AnAlertNeedsNoWindow) {
  QTimer::singleShot(0, qApp, [] {
    EXPECT_TRUE(spinUntil([] {
      auto* modal = QApplication::activeModalWidget();
      return modal != nullptr && modal->isActiveWindow() && modal->windowTitle() == "Kelto Installer";
    }));
    doUntil("xdotool key Return", [] { return QApplication::activeModalWidget() == nullptr; });
  });
  application.runModal({"Headline", "Text", "OK"});
}

TEST_F(QtApplicationTest, AnUnknownDelegateClassIsReportedAndNothingRuns) {
  writeDocument("SomeOtherDelegate");
  EXPECT_EQ(run(), 1);
  ASSERT_EQ(fakes.systemLog.lines.size(), 1U);
  EXPECT_NE(fakes.systemLog.lines[0].find("\"SomeOtherDelegate\""), std::string::npos);
}

TEST_F(QtApplicationTest, AMissingInterfaceDescriptionIsReportedAndNothingRuns) {
  EXPECT_EQ(application.run(platform, "/nowhere/MainWindow.ui", classes), 1);
  ASSERT_EQ(fakes.systemLog.lines.size(), 1U);
  EXPECT_NE(fakes.systemLog.lines[0].find("/nowhere/MainWindow.ui"), std::string::npos);
}

}  // namespace
