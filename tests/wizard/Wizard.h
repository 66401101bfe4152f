#pragma once
// The installer's window with the texts of one language and mode, without the installer.
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/InstallerTexts.h"
#include "foundation/plist/StringsFile.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/InterfaceDescription.h"
#include "platform/linux/qt/Language.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/QtViewResources.h"
#include "ui/KMEmbeddedWindowBackgroundView.h"

namespace tests {

struct Mode {
  const char* name;
  InstallerTexts::WizardTexts texts;
  double height;  // 0: as the description says
};
inline const std::array modes{Mode{"update", InstallerTexts::update, 0}, Mode{"install", InstallerTexts::install, 206},
                              Mode{"uninstall", InstallerTexts::uninstall, 206}};

inline foundation::StringTable textsIn(const std::string& language) {
  std::ifstream file(KELTO_SOURCE_DIR "/resources/" + language + ".lproj/Localizable.strings");
  std::ostringstream bytes;
  bytes << file.rdbuf();
  auto table = foundation::parseStrings(bytes.str());
  if (!table) throw std::runtime_error("the texts in " + language + " cannot be read");
  return *table;
}

// The tree's artwork, as if it were in the main bundle.
class Artwork {
 public:
  Artwork() {
    const std::filesystem::path folder(KELTO_SOURCE_DIR "/resources/artwork");
    for (const auto& file : std::filesystem::directory_iterator(folder))
      _bundle.resources["artwork/" + file.path().filename().string()] = file.path().string();
    _fakes.platform.views.resources = &_resources;
  }

 private:
  platform::fake::FakePlatform _fakes;
  platform::fake::FakeBundle _bundle;
  platform::Linux::QtViewResources _resources{_bundle, {_fakes.runLoop, {}}, [] {}};
};

// Shows a progress bar as it looks in the middle of a pass of its animation.
class StillBar final : public QObject {
 public:
  void stopBar(QWidget& bar) { bar.installEventFilter(this); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() != QEvent::Paint) return false;
    auto* bar = static_cast<QWidget*>(watched);
    QPainter painter(bar);
    if (bar->isRightToLeft()) painter.setTransform(QTransform(-1, 0, 0, 1, bar->width(), 0));
    platform::Linux::drawProgressBar(painter, bar->size(), 0.7);
    return true;
  }
};

class Wizard : private platform::ApplicationDelegate {
 public:
  Wizard(const std::string& language, const Mode& mode) {
    platform::Linux::applyLanguage(language);
    std::string cause;
    const std::vector<platform::ViewClass> classes{
        {"KMEmbeddedWindowBackgroundView", [] { return std::make_shared<KMEmbeddedWindowBackgroundView>(); }}};
    _description = platform::Linux::InterfaceDescription::load(KELTO_SOURCE_DIR "/resources/MainWindow.ui", [] {}, cause,
                                                               {foundation::ViewEnvironment::installed().runLoop, classes});
    if (!_description) throw std::runtime_error(cause);
    _description->connectOutlets(*this);
    fill(textsIn(language), mode);
  }

  [[nodiscard]] QWidget& window() const { return _description->window(); }

 private:
  template <class Element>
  std::shared_ptr<Element> outlet(const char* name) {
    return std::dynamic_pointer_cast<Element>(_outlets.at(name));
  }

  void fill(const foundation::StringTable& texts, const Mode& mode) {
    const auto text = [&](std::string_view key) { return texts.find(key)->second; };
    const auto frame = outlet<platform::Window>("window");
    foundation::Rect rect = frame->frame();
    if (mode.height > 0) rect.size.height = mode.height;
    frame->setFrame(rect, false);
    outlet<platform::TextField>("titleText")->setStringValue(text(mode.texts.title));
    outlet<platform::TextField>("bodyText")->setStringValue(text(mode.texts.body));
    outlet<platform::Button>("cancelButton")->setTitle(text(InstallerTexts::cancel));
    outlet<platform::Button>("nextButton")->setTitle(text(mode.texts.nextButton));
    _stillBar.stopBar(*window().findChild<QWidget*>("progressBar"));
    window().ensurePolished();
    window().show();
    QCoreApplication::sendPostedEvents();
  }

  void connectOutlet(std::string_view name, const std::shared_ptr<platform::InterfaceElement>& element) override {
    _outlets[std::string(name)] = element;
  }
  void applicationDidFinishLaunching(const foundation::Notification& /*notification*/) override {}
  void applicationWillTerminate(const foundation::Notification& /*notification*/) override {}

  StillBar _stillBar;
  std::unique_ptr<platform::Linux::InterfaceDescription> _description;
  std::map<std::string, std::shared_ptr<platform::InterfaceElement>> _outlets;
};

}  // namespace tests
