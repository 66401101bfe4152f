#pragma once
// The name by which other programs know a window of this one (see kelto_controller_set_parent_window).
//
// Main thread only.
#include <QWindow>
#include <memory>
#include <string>

class ExportedWindow {
 public:
  // The window is shown. It is exported as long as this object lives.
  explicit ExportedWindow(QWindow& window);
  ~ExportedWindow();

  // Empty where the display has no such names.
  [[nodiscard]] const std::string& name() const { return _name; }

 private:
  class Export;
  std::unique_ptr<Export> _export;  // on Wayland
  std::string _name;
};
