// Shows the installer's window and its alerts in every mode and language, at the scale that QT_SCALE_FACTOR says.
//
//   wizard_pictures sheet FILE.png          all of them on one contact sheet
//   wizard_pictures picture LANGUAGE MODE FILE.png
//   wizard_pictures readme FILE.png         the wizard and an alert in three languages, on a light and a dark desktop
//   wizard_pictures golden LANGUAGE SCALE FOLDER   the three modes and an alert, with the letters of fonts.conf: plain,
//                                                  with high contrast and on a dark desktop
#include <QPainter>
#include <cstdio>
#include <string_view>

#include "platform/linux/qt/Look.h"
#include "tests/support/ShippedLanguages.h"
#include "tests/wizard/GoldenPicture.h"
#include "tests/wizard/Pictures.h"

namespace {

using namespace tests;

int makeSheet(const QString& path) {
  std::vector<std::vector<QImage>> rows;
  for (const std::string language : shippedLanguages) {
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
void settleLook(const std::string& language, const std::string& scale) {
  for (const char* variable : {"QT_FONT_DPI", "QT_SCREEN_SCALE_FACTORS", "FREETYPE_PROPERTIES"}) unsetenv(variable);
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("LC_ALL", "C", 1);
  setenv("FC_LANG", platform::Linux::fontLanguage(language).c_str(), 1);
  setenv("QT_SCALE_FACTOR", scale.c_str(), 1);
  setenv("FONTCONFIG_FILE", KELTO_SOURCE_DIR "/tests/wizard/fonts.conf", 1);
}

// As a desktop's theme does that makes everything dark.
void preferDark() {
  QApplication::setStyle("Fusion");
  QPalette dark(QColor(49, 54, 59), QColor(32, 35, 38));
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    dark.setColor(role, QColor(239, 240, 241));
  QApplication::setPalette(dark);
}

bool saveAll(const std::string& language, const std::string& scale, const std::string& look, const QString& folder) {
  bool isSaved = true;
  const auto save = [&](QWidget& widget, const char* name) {
    const GoldenPicture picture{.name = name, .look = look, .language = language, .scale = scale};
    isSaved &= pictureOf(widget).save(folder + "/" + picture.file());
  };
  for (const auto& mode : modes) save(Wizard(language, mode).window(), mode.name);
  withAlert(alertsIn(language)[1], [&](QWidget& dialog) { save(dialog, "alert"); });
  return isSaved;
}

int makeGolden(const std::string& language, const std::string& scale, const QString& folder) {
  bool isSaved = saveAll(language, scale, "plain", folder);
  platform::Linux::applyLook({.highContrast = true});
  isSaved &= saveAll(language, scale, "contrast", folder);
  preferDark();
  platform::Linux::applyLook();
  isSaved &= saveAll(language, scale, "dark", folder);
  return isSaved ? 0 : 1;
}

// One above the other, in the middle of a desktop of that colour.
void drawCell(QPainter& painter, const QRect& cell, QColor desktop, const std::vector<QImage>& pictures) {
  constexpr int gap = 28;
  painter.fillRect(cell, desktop);
  double top = cell.top() + gap;
  for (const QImage& picture : pictures) {
    const QSizeF size = picture.deviceIndependentSize();
    painter.drawImage(QPointF(cell.center().x() - size.width() / 2, top), picture);
    top += size.height() + gap;
  }
}

int makeReadme(const QString& path) {
  constexpr QSize cell(524, 490);
  constexpr QColor desktops[] = {{236, 239, 242}, {30, 34, 40}};
  const std::vector<std::string> languages{"en", "ja", "ar"};
  const double scale = qApp->devicePixelRatio();
  QImage sheet(QSize(2 * cell.width(), static_cast<int>(languages.size()) * cell.height()) * scale, QImage::Format_RGB32);
  sheet.setDevicePixelRatio(scale);
  QPainter painter(&sheet);
  int top = 0;
  for (const auto& language : languages) {
    std::vector<QImage> pictures{pictureOf(Wizard(language, modes[1]).window())};
    withAlert(alertsIn(language)[1], [&](QWidget& dialog) { pictures.push_back(pictureOf(dialog)); });
    int left = 0;
    for (const QColor& desktop : desktops) {
      drawCell(painter, {QPoint(left, top), cell}, desktop, pictures);
      left += cell.width();
    }
    top += cell.height();
  }
  painter.end();
  return sheet.save(path) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool isGolden = arguments.size() == 4 && arguments[0] == "golden";
  const bool isReadme = arguments.size() == 2 && arguments[0] == "readme";
  if (isReadme) settleLook("ja", "2");
  if (isGolden) settleLook(arguments[1], arguments[2]);
  int count = 1;
  QApplication application(count, argv);
  platform::Linux::applyLook(platform::Linux::settingsOfEnvironment());
  const Artwork artwork;
  if (arguments.size() == 2 && arguments[0] == "sheet") return makeSheet(QString::fromStdString(arguments[1]));
  if (isGolden) return makeGolden(arguments[1], arguments[2], QString::fromStdString(arguments[3]));
  if (isReadme) return makeReadme(QString::fromStdString(arguments[1]));
  if (arguments.size() == 4 && arguments[0] == "picture")
    return makePicture(arguments[1], arguments[2], QString::fromStdString(arguments[3]));
  std::fprintf(
      stderr,
      "usage: wizard_pictures sheet FILE | readme FILE | picture LANGUAGE MODE FILE | golden LANGUAGE SCALE FOLDER\n");
  return 2;
}
