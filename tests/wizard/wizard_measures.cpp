// Measures the installer's window and its alerts in every mode and language, at the scale that QT_SCALE_FACTOR says.
//
//   wizard_measures room       for every text, the room that it needs and the room that it has
//   wizard_measures contrast   for every text, the least contrast between its letters and what is painted under them
//   wizard_measures desktop    the colour of a window, and of a text on it, as the desktop wants them
#include <QElapsedTimer>
#include <QWindow>
#include <cstdio>
#include <set>

#include "platform/linux/qt/Look.h"
#include "tests/support/Contrast.h"
#include "tests/support/ShippedLanguages.h"
#include "tests/wizard/PictureComparison.h"
#include "tests/wizard/Pictures.h"

namespace {

using namespace tests;

// Until the display server shows the window.
void waitUntilShown(const QWidget& window) {
  QElapsedTimer elapsed;
  elapsed.start();
  while (!window.windowHandle()->isExposed()) {
    if (elapsed.elapsed() > 10000) throw std::runtime_error("a window was not shown");
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
  }
}

void report(const std::string& where, const char* element, QSize needed, const QWidget& widget, const QRect& room) {
  const QRect place(widget.mapTo(widget.window(), QPoint()), widget.size());
  const bool fits = needed.width() <= widget.width() && needed.height() <= widget.height() && room.contains(place);
  std::printf("%s %s %s: needs %dx%d, has %dx%d\n", fits ? "fits" : "CUT", where.c_str(), element, needed.width(),
              needed.height(), widget.width(), widget.height());
}

QSize neededBy(const QLabel& label) {
  const auto words = label.text().split(' ');
  int widest = 0;
  for (const auto& word : words) widest = std::max(widest, label.fontMetrics().horizontalAdvance(word));
  const bool breaksAnywhere = words.size() == 1;  // scripts without blanks
  return {breaksAnywhere ? 0 : widest, label.heightForWidth(label.width())};
}

// Labels stand above the footer, buttons in it, and nothing leaves its window.
int measure() {
  for (const std::string language : shippedLanguages) {
    for (const auto& mode : modes) {
      const Wizard wizard(language, mode);
      waitUntilShown(wizard.window());
      const std::string where = language + " " + mode.name;
      const QRect all = wizard.window().rect();
      const QRect content = all.adjusted(0, 0, 0, -60);
      for (const auto* label : wizard.window().findChildren<QLabel*>())
        report(where, label->objectName().toUtf8(), neededBy(*label), *label, content);
      for (const auto* button : wizard.window().findChildren<QPushButton*>())
        report(where, button->objectName().toUtf8(), button->sizeHint(), *button, all.adjusted(0, content.height(), 0, 0));
    }
    int number = 0;
    for (const auto& alert : alertsIn(language))
      withAlert(alert, [&](QWidget& dialog) {
        waitUntilShown(dialog);
        const std::string where = language + " alert" + std::to_string(++number);
        for (const auto* label : dialog.findChildren<QLabel*>())
          if (!label->text().isEmpty()) report(where, "text", neededBy(*label), *label, dialog.rect());
        for (const auto* button : dialog.findChildren<QPushButton*>())
          report(where, "button", button->sizeHint(), *button, dialog.rect());
      });
  }
  return 0;
}

// All from what is painted: the letters' colour is that of the pixel that they change most, and the ground is the picture
// without them.
double leastContrast(const QImage& shown, const QImage& ground, const QRect& place) {
  QRgb ink = ground.pixel(place.topLeft());
  int farthest = -1;
  for (int y = place.top(); y <= place.bottom(); ++y)
    for (int x = place.left(); x <= place.right(); ++x)
      if (const int change = distance(shown.pixel(x, y), ground.pixel(x, y)); change > farthest) {
        farthest = change;
        ink = shown.pixel(x, y);
      }
  double least = 21;
  for (int y = place.top(); y <= place.bottom(); ++y)
    for (int x = place.left(); x <= place.right(); ++x) least = std::min(least, contrast(ink, ground.pixel(x, y)));
  return least;
}

void printContrasts(const std::string& where, QWidget& window) {
  waitUntilShown(window);
  const auto opaque = [&] { return pictureOf(window).convertToFormat(QImage::Format_RGB32); };
  const QImage shown = opaque();
  std::vector<QWidget*> texts;
  for (auto* label : window.findChildren<QLabel*>())
    if (!label->text().isEmpty()) texts.push_back(label);
  for (auto* button : window.findChildren<QPushButton*>())
    if (button->isEnabled()) texts.push_back(button);
  for (QWidget* text : texts) {
    const QPalette before = text->palette();
    QPalette without = before;
    without.setColor(text->foregroundRole(), Qt::transparent);
    text->setPalette(without);
    const QImage ground = opaque();
    text->setPalette(before);
    // A button's frame and the area around it are not behind its letters.
    const int edge = qobject_cast<QPushButton*>(text) != nullptr ? 4 : 0;
    const QRect inside = text->rect().adjusted(edge, edge, -edge, -edge);
    const QRectF place(QPointF(text->mapTo(&window, inside.topLeft())) * shown.devicePixelRatio(),
                       QSizeF(inside.size()) * shown.devicePixelRatio());
    std::printf("%.2f %s %s\n", leastContrast(shown, ground, place.toRect()), where.c_str(),
                text->metaObject()->className());
  }
}

int printAllContrasts() {
  for (const std::string language : {"en", "ja"}) {
    for (const auto& mode : modes) {
      const Wizard wizard(language, mode);
      printContrasts(language + " " + mode.name, wizard.window());
    }
    for (const auto& alert : alertsIn(language))
      withAlert(alert, [&](QWidget& dialog) { printContrasts(language + " alert", dialog); });
  }
  return 0;
}

int printDesktop() {
  const auto print = [](QPalette::ColorRole role) {
    std::printf("%s\n", QApplication::palette().color(role).name().toUtf8().constData());
  };
  print(QPalette::Window);
  print(QPalette::WindowText);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc == 2 ? argv[1] : "";
  int count = 1;
  QApplication application(count, argv);
  if (what == "desktop") return printDesktop();
  platform::Linux::applyLook(platform::Linux::settingsOfEnvironment());
  const Artwork artwork;
  if (what == "room") return measure();
  if (what == "contrast") return printAllContrasts();
  std::fprintf(stderr, "usage: wizard_measures room | contrast | desktop\n");
  return 2;
}
