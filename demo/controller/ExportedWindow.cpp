#include "demo/controller/ExportedWindow.h"

#include <xdg-foreign-unstable-v2.h>

#include <QGuiApplication>

#include "platform/linux/wayland/RequestQueue.h"
#include "platform/linux/wayland/Toplevel.h"

class ExportedWindow::Export {
 public:
  explicit Export(const platform::Linux::Toplevel& window)
      : _queue(window.display), _exporter(_queue.bind<zxdg_exporter_v2>(zxdg_exporter_v2_interface)) {
    if (!_exporter) return;
    _exported.reset(zxdg_exporter_v2_export_toplevel(_exporter.get(), window.surface));
    static constexpr zxdg_exported_v2_listener listener{[](void* data, zxdg_exported_v2* /*exported*/, const char* handle) {
      static_cast<Export*>(data)->_handle = handle;
    }};
    zxdg_exported_v2_add_listener(_exported.get(), &listener, this);
    _queue.waitForAnswers();
  }

  // Empty when the compositor exports no windows.
  [[nodiscard]] const std::string& handle() const { return _handle; }

 private:
  struct Destroy {
    void operator()(zxdg_exporter_v2* exporter) const { zxdg_exporter_v2_destroy(exporter); }
    void operator()(zxdg_exported_v2* exported) const { zxdg_exported_v2_destroy(exported); }
  };
  platform::Linux::RequestQueue _queue;
  std::unique_ptr<zxdg_exporter_v2, Destroy> _exporter;
  std::unique_ptr<zxdg_exported_v2, Destroy> _exported;
  std::string _handle;
};

ExportedWindow::ExportedWindow(QWindow& window) {
  if (QGuiApplication::platformName() == "xcb") _name = "x11:" + QString::number(window.winId(), 16).toStdString();
  const auto toplevel = platform::Linux::toplevelOf(window);
  if (!toplevel) return;
  _export = std::make_unique<Export>(*toplevel);
  if (!_export->handle().empty()) _name = "wayland:" + _export->handle();
}

ExportedWindow::~ExportedWindow() = default;
