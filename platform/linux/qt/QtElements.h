#pragma once
// The interface elements over Qt's widgets.
//
// Main thread only. An element refers to its widget weakly: when the widget has gone, it does nothing.
#include <QAbstractButton>
#include <QLabel>
#include <QPointer>

#include "platform/UserInterface.h"

namespace platform::Linux {

// Text is shown as it stands: no mark-up and no keyboard marks. A widget beside the label whose property "namedBy" holds
// the label's name takes the text as its name for assistive tools. All texts of the window together are its description.
class QtTextField final : public TextField {
 public:
  explicit QtTextField(QLabel& label) : _label(&label) {}
  void setStringValue(std::string_view text) override;

 private:
  void describeWindow() const;

  QPointer<QLabel> _label;
};

class QtButton final : public Button {
 public:
  explicit QtButton(QAbstractButton& button) : _button(&button) {}
  void setTitle(std::string_view title) override;

 private:
  QPointer<QAbstractButton> _button;
};

// The text of a button that shows `title` as it stands.
QString literalTitle(std::string_view title);

QString qtString(std::string_view text);

}  // namespace platform::Linux
