#include "platform/linux/qt/QtElements.h"

#include <QVariant>

namespace platform::Linux {

QString qtString(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

QString literalTitle(std::string_view title) { return qtString(title).replace('&', "&&"); }

void QtTextField::setStringValue(std::string_view text) {
  if (_label == nullptr) return;
  const QString shown = qtString(text);
  _label->setTextFormat(Qt::PlainText);
  _label->setText(shown);
  for (auto* named : _label->window()->findChildren<QWidget*>())
    if (named->property("namedBy").toString() == _label->objectName()) named->setAccessibleName(shown);
}

void QtButton::setTitle(std::string_view title) {
  if (_button == nullptr) return;
  const QKeySequence shortcut = _button->shortcut();
  _button->setText(literalTitle(title));
  _button->setShortcut(shortcut);  // setText puts the title's own mark in its place
}

}  // namespace platform::Linux
