#pragma once
// The names of the golden pictures.
#include <QString>
#include <string>

namespace tests {

struct GoldenPicture {
  std::string name;  // of the mode, or "alert"
  std::string look;  // "plain", "contrast" or "dark"
  std::string language;
  std::string scale;

  // "update.png", "update-contrast-de@1.5x.png"
  [[nodiscard]] QString file() const {
    std::string file = name;
    if (look != "plain") file += "-" + look;
    if (language != "en") file += "-" + language;
    if (scale != "1") file += "@" + scale + "x";
    return QString::fromStdString(file + ".png");
  }
};

}  // namespace tests
