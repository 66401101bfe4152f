#include "platform/linux/qt/QtAlert.h"

#include <QAccessible>
#include <QDialog>
#include <QLabel>
#include <QPushButton>

#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;
using tests::outputOf;

namespace {

const Alert plain{"Headline", "Text", "OK"};

// Shows the alert, runs `look` when it is up and has the focus, then does `dismiss` from outside. Fails unless that ends
// it.
void runAlertAnd(const Alert& alert, QWidget* parent, const std::function<void(QDialog&)>& look,
                 const std::string& dismiss) {
  bool isDismissed = false;
  QTimer::singleShot(0, qApp, [&] {
    const auto dialog = [] { return dynamic_cast<QDialog*>(QApplication::activeModalWidget()); };
    ASSERT_TRUE(spinUntil([&] { return dialog() != nullptr && isActiveForAll(*dialog()); }));
    look(*dialog());
    isDismissed = doUntil(dismiss, [&] { return dialog() == nullptr || !dialog()->isVisible(); });
    if (!isDismissed) dialog()->reject();
  });
  runAlert(alert, "Kelto Installer", parent);
  EXPECT_TRUE(isDismissed);
}

void lookAtNothing(QDialog& /*dialog*/) {}

TEST(QtAlert, ReturnDismissesIt) { runAlertAnd(plain, nullptr, lookAtNothing, "xdotool key Return"); }

TEST(QtAlert, EscapeDismissesIt) { runAlertAnd(plain, nullptr, lookAtNothing, "xdotool key Escape"); }

TEST(QtAlert, ClosingItsWindowDismissesIt) { runAlertAnd(plain, nullptr, lookAtNothing, "xdotool key alt+F4"); }

TEST(QtAlert, ItsButtonDismissesIt) {
  runAlertAnd(
      plain, nullptr,
      [&](QDialog& dialog) {
        const auto* button = dialog.findChild<QPushButton*>();
        const QPoint center = button->mapToGlobal(button->rect().center());
        outputOf("xdotool mousemove " + std::to_string(center.x()) + " " + std::to_string(center.y()));
      },
      "xdotool click 1");
}

TEST(QtAlert, TextsAreShownAsTheyStand) {
  const Alert alert{"<b>50 %d & more</b>", "a &amp; b <i>c</i>\n100% %@", "R&D <OK>"};
  runAlertAnd(
      alert, nullptr,
      [&](QDialog& dialog) {
        QStringList texts;
        for (const auto* label : dialog.findChildren<QLabel*>()) {
          if (label->text().isEmpty()) continue;
          EXPECT_EQ(label->textFormat(), Qt::PlainText);
          EXPECT_EQ(label->buddy(), nullptr);
          texts << label->text();
        }
        EXPECT_EQ(texts, (QStringList{"<b>50 %d & more</b>", "a &amp; b <i>c</i>\n100% %@"}));
        EXPECT_EQ(dialog.findChild<QPushButton*>()->text(), "R&&D <OK>");
        EXPECT_TRUE(dialog.findChild<QPushButton*>()->shortcut().isEmpty());
      },
      "xdotool key Return");
}

TEST(QtAlert, ItHasOneDefaultButton) {
  runAlertAnd(
      plain, nullptr,
      [](QDialog& dialog) {
        const auto buttons = dialog.findChildren<QPushButton*>();
        ASSERT_EQ(buttons.size(), 1);
        EXPECT_TRUE(buttons.front()->isDefault());
        EXPECT_TRUE(buttons.front()->hasFocus());
        EXPECT_EQ(buttons.front()->text(), "OK");
      },
      "xdotool key Return");
}

TEST(QtAlert, TheWindowManagerSeesTheApplicationsName) {
  runAlertAnd(
      plain, nullptr,
      [](QDialog& dialog) {
        EXPECT_EQ(outputOf("xdotool getwindowname " + std::to_string(dialog.winId())), "Kelto Installer\n");
      },
      "xdotool key Return");
}

TEST(QtAlert, ItStandsOverTheWindowAndKeepsInputFromIt) {
  WindowWidget window;
  window.setFixedSize(460, 320);
  window.move(300, 300);
  QPushButton button("Cancel", &window);
  button.setGeometry(0, 0, 60, 40);
  int presses = 0;
  QObject::connect(&button, &QPushButton::clicked, &button, [&] { ++presses; });
  window.show();
  ASSERT_TRUE(spinUntil([&] { return window.isActiveWindow(); }));
  runAlertAnd(
      plain, &window,
      [&](QDialog& dialog) {
        const auto isCentered = [&] {
          const auto seen = seenFromOutside(dialog);
          const QPoint distance = QRect(seen.x, seen.y, seen.width, seen.height).center() - window.geometry().center();
          return distance.manhattanLength() < 60;  // the window manager's borders are not counted in
        };
        EXPECT_TRUE(spinUntil(isCentered));
        EXPECT_EQ(dialog.parentWidget(), &window);
        outputOf("xdotool mousemove 310 310 click 1");
        EXPECT_TRUE(spinUntil([&] {
          outputOf("xdotool windowactivate " + std::to_string(dialog.winId()));
          return dialog.isActiveWindow();
        }));
      },
      "xdotool key Return");
  EXPECT_EQ(presses, 0);
}

// The least by which an edge of the alert differs from the same edge of the window under it.
int leastDistanceOfEdges(const Alert& alert, QSize size) {
  WindowWidget window;
  window.setFixedSize(size);
  window.move(300, 300);
  window.show();
  if (!spinUntil([&] { return window.isActiveWindow(); })) return -1;
  int least = -1;
  runAlertAnd(
      alert, &window,
      [&](QDialog& dialog) {
        const auto seen = seenFromOutside(dialog);
        const QRect place(seen.x, seen.y, seen.width, seen.height);
        const QRect under = window.geometry();
        least = std::min({std::abs(place.left() - under.left()), std::abs(place.right() - under.right()),
                          std::abs(place.top() - under.top()), std::abs(place.bottom() - under.bottom())});
      },
      "xdotool key Return");
  return least;
}

TEST(QtAlert, NoSliverOfTheWindowSticksOutBesideIt) {
  constexpr int clear = 16;
  std::string text = "A sentence of an alert.";
  for (int length = 0; length < 4; ++length) {
    for (const int height : {206, 320}) EXPECT_GE(leastDistanceOfEdges({"Headline", text, "OK"}, {460, height}), clear);
    text += " Another sentence, which says a little more about what has happened and why.";
  }
}

TEST(QtAlert, ItIsADialogOfTheWindowWithoutTheWindowManagersButtons) {
  WindowWidget window;
  window.setFixedSize(460, 206);
  window.show();
  ASSERT_TRUE(spinUntil([&] { return window.isActiveWindow(); }));
  runAlertAnd(
      plain, &window,
      [&](QDialog& dialog) {
        const auto property = [&](const std::string& name) {
          return outputOf("xprop -id " + std::to_string(dialog.winId()) + " " + name);
        };
        EXPECT_EQ(
            std::stoul(property("WM_TRANSIENT_FOR").substr(std::string("WM_TRANSIENT_FOR(WINDOW): window id # ").size()),
                       nullptr, 16),
            window.winId());
        EXPECT_NE(property("_NET_WM_WINDOW_TYPE").find("_NET_WM_WINDOW_TYPE_DIALOG"), std::string::npos);
        EXPECT_NE(property("_NET_FRAME_EXTENTS").find("= 0, 0, 0, 0"), std::string::npos) << property("_NET_FRAME_EXTENTS");
      },
      "xdotool key Return");
}

// A screen reader reads the texts of an alert by itself; a description would be read besides.
TEST(QtAlert, AssistiveToolsAreToldThatItIsAnAlertAndBothTextsOnce) {
  runAlertAnd(
      plain, nullptr,
      [](QDialog& dialog) {
        auto* told = QAccessible::queryAccessibleInterface(&dialog);
        EXPECT_EQ(told->role(), QAccessible::AlertMessage);
        EXPECT_EQ(told->text(QAccessible::Name), "Kelto Installer");
        EXPECT_EQ(told->text(QAccessible::Description), "");
        QStringList texts;
        for (int i = 0; i < told->childCount(); ++i)
          if (told->child(i)->role() == QAccessible::StaticText) texts << told->child(i)->text(QAccessible::Name);
        EXPECT_EQ(texts, (QStringList{"Headline", "Text"}));
      },
      "xdotool key Return");
}

bool asksForAttention(const QDialog* dialog) {
  return dialog != nullptr && outputOf("xprop -id " + std::to_string(dialog->winId()) + " _NET_WM_STATE")
                                      .find("_NET_WM_STATE_DEMANDS_ATTENTION") != std::string::npos;
}

// A window of another program.
class OtherProgram {
 public:
  OtherProgram() {
    spinUntil([&] {
      _window = outputOf("xdotool search --name '^Event Tester$'");
      return !_window.empty();
    });
  }
  void activate() const { outputOf("xdotool windowactivate " + _window); }

 private:
  const tests::ChildProcess _process{{"xev", "-event", "keyboard"}};
  std::string _window;
};

TEST(QtAlert, BehindOtherWindowsItAsksForAttention) {
  WindowWidget window;
  window.show();
  ASSERT_TRUE(spinUntil([&] { return isActiveForAll(window); }));
  const OtherProgram other;
  ASSERT_TRUE(spinUntil([&] {
    other.activate();
    return !window.isActiveWindow();
  }));
  bool hasAsked = false;
  runAlert(plain, "Kelto Installer", &window, [&] {
    QTimer::singleShot(0, qApp, [&] {
      auto* dialog = window.findChild<QDialog*>();
      hasAsked = spinUntil([&] { return asksForAttention(dialog); });
      dialog->reject();
    });
  });
  EXPECT_TRUE(hasAsked);
}

TEST(QtAlert, DismissedBeforeItWaitsBehindOtherWindowsItDoesNotWait) {
  WindowWidget window;
  window.show();
  bool hasWaited = false;
  QTimer turn;
  const auto dismiss = [&] { window.findChild<QDialog*>()->reject(); };
  QObject::connect(&turn, &QTimer::timeout, &window, [&] {
    hasWaited = true;
    dismiss();
  });
  runAlert(plain, "Kelto Installer", &window, [&] {
    dismiss();
    turn.start(0);
  });
  EXPECT_FALSE(hasWaited);
}

// The user turns to another program's window at the moment in which the alert appears. It asks once, after a while: on a
// machine that is slower it may have the keyboard by then.
bool asksWhenTheUserTurnsAway(const OtherProgram& other) {
  bool hasAsked = false;
  QTimer::singleShot(0, qApp, [&] {
    const auto* dialog = dynamic_cast<QDialog*>(QApplication::activeModalWidget());
    hasAsked = spinUntil(
        [&] {
          other.activate();
          return asksForAttention(dialog);
        },
        1000);
    QApplication::activeModalWidget()->close();
  });
  runAlert(plain, "Kelto Installer", nullptr);
  return hasAsked;
}

TEST(QtAlert, ThatWaitsWithoutTheKeyboardAsksForAttention) {
  const OtherProgram other;
  bool hasAsked = false;
  for (int attempt = 0; attempt < 10 && !hasAsked; ++attempt) hasAsked = asksWhenTheUserTurnsAway(other);
  EXPECT_TRUE(hasAsked);
}

TEST(QtAlert, WithoutAWindowItStandsInTheMiddleOfTheScreen) {
  runAlertAnd(
      plain, nullptr,
      [](QDialog& dialog) {
        EXPECT_TRUE(spinUntil([&] {
          const auto seen = seenFromOutside(dialog);
          return std::abs(seen.x + seen.width / 2 - 640) < 30 && std::abs(seen.y + seen.height / 2 - 512) < 50;
        }));
      },
      "xdotool key Return");
}

TEST(QtAlert, AHiddenWindowDoesNotBecomeItsParent) {
  WindowWidget window;
  runAlertAnd(
      plain, &window, [](QDialog& dialog) { EXPECT_EQ(dialog.parentWidget(), nullptr); }, "xdotool key Return");
}

TEST(QtAlert, LongTextsAreNotCut) {
  std::string longText;
  for (int i = 0; i < 60; ++i) longText += "Donaudampfschifffahrtsgesellschaft ";
  runAlertAnd(
      {longText, longText, "OK"}, nullptr,
      [](QDialog& dialog) {
        for (const auto* label : dialog.findChildren<QLabel*>())
          EXPECT_TRUE(label->text().isEmpty() || label->height() >= label->heightForWidth(label->width()));
      },
      "xdotool key Return");
}

}  // namespace
