// Shows the installer's window and its alerts in every mode and language, at the scale that QT_SCALE_FACTOR says.
//
//   wizard_pictures sheet FILE.png          all of them on one contact sheet
//   wizard_pictures picture LANGUAGE MODE FILE.png
//   wizard_pictures golden LANGUAGE SCALE FOLDER   the three modes and an alert, with the letters of fonts.conf
#include <QPainter>
#include <cstdio>
#include <string_view>

#include "platform/linux/qt/Look.h"
#include "tests/support/ShippedLanguages.h"
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

int makeGolden(const std::string& language, const QString& folder) {
  bool isSaved = true;
  const QString suffix = language == "en" ? "" : "-" + QString::fromStdString(language);
  const auto save = [&](QWidget& widget, const char* name) {
    const QImage image = pictureOf(widget);
    isSaved &= image.save(folder + "/" + name + suffix + (image.devicePixelRatio() > 1 ? "@2x.png" : ".png"));
  };
  for (const auto& mode : modes) save(Wizard(language, mode).window(), mode.name);
  withAlert(alertsIn(language)[1], [&](QWidget& dialog) { save(dialog, "alert"); });
  return isSaved ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool isGolden = arguments.size() == 4 && arguments[0] == "golden";
  if (isGolden) settleLook(arguments[1], arguments[2]);
  int count = 1;
  QApplication application(count, argv);
  platform::Linux::applyLook(application);
  const Artwork artwork;
  if (arguments.size() == 2 && arguments[0] == "sheet") return makeSheet(QString::fromStdString(arguments[1]));
  if (isGolden) return makeGolden(arguments[1], QString::fromStdString(arguments[3]));
  if (arguments.size() == 4 && arguments[0] == "picture")
    return makePicture(arguments[1], arguments[2], QString::fromStdString(arguments[3]));
  std::fprintf(stderr, "usage: wizard_pictures sheet FILE | picture LANGUAGE MODE FILE | golden LANGUAGE SCALE FOLDER\n");
  return 2;
}
