// Shows the installer's window and its alerts in every mode and language, at the scale that QT_SCALE_FACTOR says.
//
//   wizard_pictures sheet FILE.png          all of them on one contact sheet
//   wizard_pictures picture LANGUAGE MODE FILE.png
//   wizard_pictures golden SCALE FOLDER     the three modes and an alert in English, with the letters of fonts.conf
//   wizard_pictures measure                 for every text, the room that it needs and the room that it has
#include <QDialog>
#include <QPainter>
#include <QTimer>
#include <cstdio>
#include <string_view>

#include "platform/linux/qt/Look.h"
#include "platform/linux/qt/QtAlert.h"
#include "tests/wizard/Wizard.h"

namespace {

using namespace tests;

QImage pictureOf(QWidget& widget) {
  const double scale = widget.devicePixelRatioF();
  QImage image(widget.size() * scale, QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(scale);
  const bool isWizard = widget.testAttribute(Qt::WA_TranslucentBackground);
  image.fill(isWizard ? Qt::transparent : widget.palette().window().color());
  widget.render(&image, {}, {}, QWidget::DrawChildren);
  return image;
}

std::string filled(std::string text, const std::string& argument) {
  const auto place = text.find("%@");
  return place == std::string::npos ? text : text.replace(place, 2, argument);
}

std::vector<platform::Alert> alertsIn(const std::string& language) {
  const auto texts = textsIn(language);
  const auto alert = [&](std::string_view title, std::string_view message, const std::string& argument) {
    const auto text = [&](std::string_view key) { return filled(texts.find(key)->second, argument); };
    return platform::Alert{text(title), text(message), text(InstallerTexts::ok)};
  };
  return {alert(InstallerTexts::unexpectedErrorSubtitle, InstallerTexts::unexpectedErrorMessage, ""),
          alert(InstallerTexts::badPermissionSubtitle, InstallerTexts::badPermissionMessage, "Applications"),
          alert(InstallerTexts::runningSubtitle, InstallerTexts::runningMessage, "Kelto"),
          alert(InstallerTexts::unableToUninstallSubtitle, InstallerTexts::unableToUninstallMessage, "Kelto")};
}

// Looks at the alert while it is up, then dismisses it.
template <class Look>
void withAlert(const platform::Alert& alert, Look look) {
  QTimer::singleShot(0, qApp, [&] {
    auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    look(*dialog);
    dialog->accept();
  });
  platform::Linux::runAlert(alert, "Kelto Installer", nullptr);
}

int makeSheet(const QString& path) {
  std::vector<std::vector<QImage>> rows;
  for (const std::string language : languages) {
    auto& row = rows.emplace_back();
    for (const auto& mode : modes) row.push_back(pictureOf(Wizard(language, mode).window()));
    for (const auto& alert : alertsIn(language))
      withAlert(alert, [&](QWidget& dialog) { row.push_back(pictureOf(dialog)); });
  }
  const double scale = rows.front().front().devicePixelRatio();
  constexpr int margin = 24;
  const QSize cell(470, 330);
  QImage sheet(QSize(margin + (cell.width() + margin) * static_cast<int>(rows.front().size()),
                     margin + (cell.height() + margin) * static_cast<int>(rows.size())) *
                   scale,
               QImage::Format_RGB32);
  sheet.setDevicePixelRatio(scale);
  sheet.fill(QColor(112, 122, 134));
  QPainter painter(&sheet);
  for (std::size_t y = 0; y < rows.size(); ++y)
    for (std::size_t x = 0; x < rows[y].size(); ++x)
      painter.drawImage(QPointF(margin + static_cast<int>(x) * (cell.width() + margin),
                                margin + static_cast<int>(y) * (cell.height() + margin)),
                        rows[y][x]);
  painter.end();
  return sheet.save(path) ? 0 : 1;
}

int makePicture(const std::string& language, std::string_view name, const QString& path) {
  for (const auto& mode : modes)
    if (mode.name == name) return pictureOf(Wizard(language, mode).window()).save(path) ? 0 : 1;
  return 1;
}

// Letters and scale are settled before there is an application object.
void settleLook(const std::string& scale) {
  for (const char* variable : {"QT_FONT_DPI", "QT_SCREEN_SCALE_FACTORS", "FREETYPE_PROPERTIES"}) unsetenv(variable);
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_SCALE_FACTOR", scale.c_str(), 1);
  setenv("FONTCONFIG_FILE", KELTO_SOURCE_DIR "/tests/wizard/fonts.conf", 1);
}

int makeGolden(const QString& folder) {
  bool isSaved = true;
  const auto save = [&](QWidget& widget, const char* name) {
    const QImage image = pictureOf(widget);
    isSaved &= image.save(folder + "/" + name + (image.devicePixelRatio() > 1 ? "@2x.png" : ".png"));
  };
  for (const auto& mode : modes) save(Wizard("en", mode).window(), mode.name);
  withAlert(alertsIn("en")[1], [&](QWidget& dialog) { save(dialog, "alert"); });
  return isSaved ? 0 : 1;
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
  for (const std::string language : languages) {
    for (const auto& mode : modes) {
      const Wizard wizard(language, mode);
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
        const std::string where = language + " alert" + std::to_string(++number);
        for (const auto* label : dialog.findChildren<QLabel*>())
          if (!label->text().isEmpty()) report(where, "text", neededBy(*label), *label, dialog.rect());
        for (const auto* button : dialog.findChildren<QPushButton*>())
          report(where, "button", button->sizeHint(), *button, dialog.rect());
      });
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool isGolden = arguments.size() == 3 && arguments[0] == "golden";
  if (isGolden) settleLook(arguments[1]);
  int count = 1;
  QApplication application(count, argv);
  platform::Linux::applyLook(application);
  const Artwork artwork;
  if (arguments.size() == 2 && arguments[0] == "sheet") return makeSheet(QString::fromStdString(arguments[1]));
  if (arguments.size() == 4 && arguments[0] == "picture")
    return makePicture(arguments[1], arguments[2], QString::fromStdString(arguments[3]));
  if (isGolden) return makeGolden(QString::fromStdString(arguments[2]));
  if (arguments.size() == 1 && arguments[0] == "measure") return measure();
  std::fprintf(stderr, "usage: wizard_pictures sheet FILE | picture LANGUAGE MODE FILE | golden SCALE FOLDER | measure\n");
  return 2;
}
