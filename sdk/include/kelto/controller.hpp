#pragma once
// The C++ form of kelto/controller.h: one class that owns a controller and calls a function object, and the record of the
// last run. Header only.
//
// The rules of kelto/controller.h hold: one thread at a time; nothing blocks.
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include <kelto/controller.h>

namespace kelto {

class Controller {
 public:
  using Handler = std::function<void(int event, int number, const std::string& text)>;

  // An empty identifier: the application owns its bus name and answers "quit" by itself. Throws std::bad_alloc.
  Controller(const std::string& bundleIdentifier, Handler handler)
      : _handler(std::make_unique<Handler>(std::move(handler))),
        _controller(kelto_controller_new(bundleIdentifier.empty() ? nullptr : bundleIdentifier.c_str(), &happened,
                                         _handler.get())) {
    if (!_controller) throw std::bad_alloc();
  }

  [[nodiscard]] int fd() const { return kelto_controller_fd(_controller.get()); }
  void dispatch() { kelto_controller_dispatch(_controller.get()); }

  int setInstaller(const std::string& bundlePath) {
    return kelto_controller_set_installer(_controller.get(), bundlePath.c_str());
  }
  int setWindowFrame(double x, double y, double width, double height) {
    return kelto_controller_set_window_frame(_controller.get(), x, y, width, height);
  }
  int setParentWindow(const std::string& name) {
    return kelto_controller_set_parent_window(_controller.get(), name.c_str());
  }

  int obtainRight() { return kelto_controller_obtain_right(_controller.get()); }
  int install(const std::string& newBundle, const std::string& installedBundle) {
    return kelto_controller_install(_controller.get(), newBundle.c_str(), installedBundle.c_str());
  }
  int update(const std::string& newBundle, const std::string& installedBundle) {
    return kelto_controller_update(_controller.get(), newBundle.c_str(), installedBundle.c_str());
  }
  int remove(const std::string& installedBundle) {
    return kelto_controller_remove(_controller.get(), installedBundle.c_str());
  }

 private:
  static void happened(void* data, int event, int number, const char* text) {
    (*static_cast<Handler*>(data))(event, number, text);
  }

  struct Free {
    void operator()(kelto_controller* controller) const { kelto_controller_free(controller); }
  };
  std::unique_ptr<Handler> _handler;
  std::unique_ptr<kelto_controller, Free> _controller;
};

// One value of the record of the installer's last run; nothing when there is no such value.
inline std::optional<std::string> lastRun(kelto_last_run value) {
  const int length = kelto_controller_last_run(value, nullptr, 0);
  if (length < 0) return std::nullopt;
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  // Another run may have ended meanwhile.
  if (kelto_controller_last_run(value, text.data(), text.size()) < 0) return std::nullopt;
  text.resize(text.find('\0'));
  return text;
}

}  // namespace kelto
