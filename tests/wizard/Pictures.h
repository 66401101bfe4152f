#pragma once
// The installer's window and alerts as pictures.
#include <QDialog>
#include <QImage>
#include <QTimer>
#include <string>
#include <vector>

#include "platform/linux/qt/QtAlert.h"
#include "tests/wizard/Wizard.h"

namespace tests {

inline QImage pictureOf(QWidget& widget) {
  const double scale = widget.devicePixelRatioF();
  QImage image(widget.size() * scale, QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(scale);
  const bool isWizard = widget.testAttribute(Qt::WA_TranslucentBackground);
  image.fill(Qt::transparent);
  widget.render(&image, {}, {}, isWizard ? QWidget::DrawChildren : QWidget::DrawChildren | QWidget::DrawWindowBackground);
  return image;
}

inline std::string filled(std::string text, const std::string& argument) {
  const auto place = text.find("%@");
  return place == std::string::npos ? text : text.replace(place, 2, argument);
}

inline std::vector<platform::Alert> alertsIn(const std::string& language) {
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

}  // namespace tests
