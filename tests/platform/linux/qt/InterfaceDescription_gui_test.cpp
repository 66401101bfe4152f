#include "platform/linux/qt/InterfaceDescription.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <fstream>
#include <map>
#include <memory>

#include "foundation/plist/StringsFile.h"
#include "platform/fake/FakePlatform.h"
#include "tests/platform/linux/qt/QtTest.h"
#include "tests/support/ShippedLanguages.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;
using tests::outputOf;

namespace {

const std::string mainWindow = KELTO_SOURCE_DIR "/resources/MainWindow.ui";

// Takes the outlets as a delegate would.
struct OutletRecorder final : ApplicationDelegate {
  void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element) override {
    outlets[std::string(name)] = element;
  }
  void applicationDidFinishLaunching(const Notification&) override {}
  void applicationWillTerminate(const Notification&) override {}

  template <class Element>
  std::shared_ptr<Element> outlet(const std::string& name) {
    return std::dynamic_pointer_cast<Element>(outlets[name].lock());
  }

  std::map<std::string, std::weak_ptr<InterfaceElement>> outlets;
};

struct InterfaceDescriptionTest : testing::Test {
  InterfaceDescriptionTest() {
    std::string cause;
    description = InterfaceDescription::load(mainWindow, [this] { ++terminations; }, cause, {runLoop, {}});
    EXPECT_NE(description, nullptr) << cause;
    description->connectOutlets(delegate);
  }

  template <class Widget>
  Widget* widget(const char* name) {
    return description->window().findChild<Widget*>(name);
  }

  void show() {
    delegate.outlet<Window>("window")->makeKeyAndOrderFront();
    ASSERT_TRUE(spinUntil([this] { return isActiveForAll(description->window()); }));
    ASSERT_TRUE(inputArrives());
  }

  fake::FakeClock clock;
  fake::FakeRunLoop runLoop{clock};
  int terminations = 0;
  std::unique_ptr<InterfaceDescription> description;
  OutletRecorder delegate;
};

TEST_F(InterfaceDescriptionTest, HasEveryOutletOfTheDelegateAndNamesItsClass) {
  EXPECT_EQ(description->delegateClass(), "KMInstallerAppDelegate");
  EXPECT_NE(delegate.outlet<Window>("window"), nullptr);
  EXPECT_NE(delegate.outlet<TextField>("titleText"), nullptr);
  EXPECT_NE(delegate.outlet<TextField>("bodyText"), nullptr);
  EXPECT_NE(delegate.outlet<Button>("cancelButton"), nullptr);
  EXPECT_NE(delegate.outlet<Button>("nextButton"), nullptr);
  EXPECT_NE(delegate.outlet<ProgressIndicator>("progressBar"), nullptr);
}

TEST_F(InterfaceDescriptionTest, ElementsGoWithTheDescription) {
  description.reset();
  EXPECT_EQ(delegate.outlet<Window>("window"), nullptr);
}

TEST_F(InterfaceDescriptionTest, ItsLayoutGivesTheSizeOfTheUpdateMode) {
  const Rect frame = delegate.outlet<Window>("window")->frame();
  EXPECT_EQ(frame.size, (Size{460, 320}));
}

TEST_F(InterfaceDescriptionTest, CancelTerminates) {
  show();
  const auto* cancel = widget<QPushButton>("cancelButton");
  const QPoint center = cancel->mapToGlobal(cancel->rect().center());
  const auto place = std::to_string(center.x()) + " " + std::to_string(center.y());
  EXPECT_TRUE(doUntil("xdotool mousemove " + place + " click 1", [this] { return terminations > 0; }));
}

TEST_F(InterfaceDescriptionTest, EscapeTerminatesWhateverTheTitleOfCancelIs) {
  delegate.outlet<Button>("cancelButton")->setTitle("Abbrechen & mehr");
  show();
  EXPECT_TRUE(doUntil("xdotool key Escape", [this] { return terminations > 0; }));
}

TEST_F(InterfaceDescriptionTest, TheWindowManagersCloseRequestTerminates) {
  show();
  EXPECT_TRUE(doUntil("xdotool key alt+F4", [this] { return terminations > 0; }));
  EXPECT_TRUE(description->window().isVisible());
}

TEST_F(InterfaceDescriptionTest, NeitherSpaceNorReturnPressesCancelByChance) {
  show();
  outputOf("xdotool key space key Return");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(terminations, 0);
}

TEST_F(InterfaceDescriptionTest, CancelIsReachedByTheKeyboard) {
  show();
  ASSERT_TRUE(doUntil("xdotool key Tab", [this] { return widget<QPushButton>("cancelButton")->hasFocus(); }));
  EXPECT_TRUE(doUntil("xdotool key space", [this] { return terminations > 0; }));
}

TEST_F(InterfaceDescriptionTest, ThereIsNothingToPressForward) {
  EXPECT_FALSE(widget<QPushButton>("nextButton")->isEnabled());
}

TEST_F(InterfaceDescriptionTest, TextsAreShownAsTheyStand) {
  delegate.outlet<TextField>("titleText")->setStringValue("<b>R&D</b> 100% &amp;");
  delegate.outlet<Button>("nextButton")->setTitle("R&D");
  EXPECT_EQ(widget<QLabel>("titleText")->text(), "<b>R&D</b> 100% &amp;");
  EXPECT_EQ(widget<QLabel>("titleText")->textFormat(), Qt::PlainText);
  EXPECT_EQ(widget<QPushButton>("nextButton")->text(), "R&&D");
}

TEST_F(InterfaceDescriptionTest, AssistiveToolsReadTheHeadlineAsTheNameOfTheProgressBar) {
  delegate.outlet<TextField>("titleText")->setStringValue("Installing");
  EXPECT_EQ(widget<QProgressBar>("progressBar")->accessibleName(), "Installing");
}

TEST_F(InterfaceDescriptionTest, TheProgressBarNeverShowsAValue) {
  delegate.outlet<ProgressIndicator>("progressBar")->startAnimation();
  const auto* bar = widget<QProgressBar>("progressBar");
  EXPECT_EQ(bar->minimum(), bar->maximum());
  EXPECT_FALSE(bar->isTextVisible());
}

struct Texts {
  std::string title;
  std::string body;
  std::string cancel;
  std::string next;
};

struct InterfaceDescriptionTextsTest : InterfaceDescriptionTest {
  void expectNothingIsCut(const Texts& texts, double height) {
    const auto window = delegate.outlet<Window>("window");
    window->setFrame({{100, 100}, {460, height}}, false);
    delegate.outlet<TextField>("titleText")->setStringValue(texts.title);
    delegate.outlet<TextField>("bodyText")->setStringValue(texts.body);
    delegate.outlet<Button>("cancelButton")->setTitle(texts.cancel);
    delegate.outlet<Button>("nextButton")->setTitle(texts.next);
    show();
    EXPECT_EQ(window->frame().size.height, height);
    for (const char* name : {"titleText", "bodyText"}) {
      const auto* label = widget<QLabel>(name);
      EXPECT_GE(label->height(), label->heightForWidth(label->width())) << name;
    }
    for (const char* name : {"cancelButton", "nextButton"}) {
      const auto* button = widget<QPushButton>(name);
      EXPECT_GE(button->width(), button->sizeHint().width()) << name;
    }
    const auto* bar = widget<QProgressBar>("progressBar");
    const int barEnd = bar->mapTo(&description->window(), QPoint(0, bar->height())).y();
    EXPECT_LE(barEnd, description->window().height() - 60) << "the bar stands above the footer";
  }
};

const Texts longGerman{"Kelto wird von diesem Computer entfernt und dabei in den Papierkorb gelegt",
                       "Kelto und die zugehörigen Bestandteile werden in den Papierkorb gelegt. Bitte warten Sie einen "
                       "Augenblick; das Fenster schließt sich von selbst, sobald der Vorgang abgeschlossen ist.",
                       "Installation abbrechen", "Fertigstellen"};

TEST_F(InterfaceDescriptionTextsTest, LongOnesAreNotCutAtTheHeightOfTheUpdate) { expectNothingIsCut(longGerman, 320); }

TEST_F(InterfaceDescriptionTextsTest, LongOnesAreNotCutAtTheHeightOfInstallAndUninstall) {
  expectNothingIsCut(longGerman, 206);
}

// The texts that the installer comes with, in one language.
struct InterfaceDescriptionTranslationsTest : InterfaceDescriptionTextsTest, testing::WithParamInterface<const char*> {
  InterfaceDescriptionTranslationsTest() {
    std::ifstream file(std::string(KELTO_SOURCE_DIR "/resources/") + GetParam() + ".lproj/Localizable.strings");
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (auto parsed = parseStrings(bytes)) table = std::move(*parsed);
  }

  void expectNothingIsCut(const char* title, const char* body, const char* next, double height) {
    InterfaceDescriptionTextsTest::expectNothingIsCut(
        {table.at(title), table.at(body), table.at("<Cancel>"), table.at(next)}, height);
  }

  StringTable table;
};

TEST_P(InterfaceDescriptionTranslationsTest, OfTheUpdateAreNotCut) {
  expectNothingIsCut("<ControllerUpdateWizard_Title>", "<ControllerUpdateWizard_Installing>", "<Next>", 320);
}

TEST_P(InterfaceDescriptionTranslationsTest, OfTheInstallationAreNotCut) {
  expectNothingIsCut("<InstallerInstallKeltoSubtitle>", "<InstallerInstallKeltoBody>", "<Done>", 206);
}

TEST_P(InterfaceDescriptionTranslationsTest, OfTheUninstallationAreNotCut) {
  expectNothingIsCut("<InstallerUninstallKeltoSubtitle>", "<InstallerUninstallKeltoBody>", "<Done>", 206);
}

INSTANTIATE_TEST_SUITE_P(Languages, InterfaceDescriptionTranslationsTest, testing::ValuesIn(tests::shippedLanguages));

// Documents of the test's own.
struct InterfaceDescriptionDocumentTest : testing::Test {
  std::string write(const std::string& document) {
    const auto path = folder.filePath("Window.ui").toStdString();
    std::ofstream(path) << document;
    return path;
  }

  QTemporaryDir folder;
  std::string cause;
  OutletRecorder delegate;
  fake::FakeClock clock;
  fake::FakeRunLoop runLoop{clock};
  int terminations = 0;
};

TEST_F(InterfaceDescriptionDocumentTest, MissingOutletsAreSimplyNotConnected) {
  const auto path = write(R"(<ui version="4.0"><widget class="QWidget" name="window">
    <widget class="QLabel" name="bodyText"/></widget></ui>)");
  const auto description = InterfaceDescription::load(path, [] {}, cause, {runLoop, {}});
  ASSERT_NE(description, nullptr) << cause;
  description->connectOutlets(delegate);
  EXPECT_EQ(delegate.outlets.size(), 2U);
  EXPECT_NE(delegate.outlet<TextField>("bodyText"), nullptr);
  EXPECT_EQ(description->delegateClass(), "");
}

TEST_F(InterfaceDescriptionDocumentTest, AButtonWithoutActionDoesNothing) {
  const auto path = write(R"(<ui version="4.0"><widget class="QWidget" name="window">
    <widget class="QPushButton" name="nextButton"/></widget></ui>)");
  const auto description = InterfaceDescription::load(path, [this] { ++terminations; }, cause, {runLoop, {}});
  ASSERT_NE(description, nullptr) << cause;
  description->window().findChild<QPushButton*>()->click();
  EXPECT_EQ(terminations, 0);
}

TEST_F(InterfaceDescriptionDocumentTest, OneThatIsMissingIsRefusedWithACause) {
  EXPECT_EQ(InterfaceDescription::load(folder.filePath("none.ui").toStdString(), [] {}, cause, {runLoop, {}}), nullptr);
  EXPECT_NE(cause, "");
}

TEST_F(InterfaceDescriptionDocumentTest, OneThatIsMalformedIsRefusedWithACause) {
  EXPECT_EQ(InterfaceDescription::load(write("<ui version=\"4.0\"><widget class="), [] {}, cause, {runLoop, {}}), nullptr);
  EXPECT_NE(cause, "");
}

}  // namespace
