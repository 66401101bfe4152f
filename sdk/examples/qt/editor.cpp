// A Qt application with a window that updates itself through the controller library.
//
//     editor [update NEW_BUNDLE [INSTALLER]]
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QSocketNotifier>
#include <cstdio>

#include <kelto/controller.hpp>

namespace {

// The bundle identifier, as in the information list. A test gives each run one of its own.
std::string identifier() { return qEnvironmentVariable("EDITOR_IDENTIFIER", "com.example.Editor").toStdString(); }

// This program is BUNDLE/Contents/Linux/editor.
std::string ownBundle() { return QDir(QCoreApplication::applicationDirPath() + "/../..").canonicalPath().toStdString(); }

class Editor final : public QLabel {
 public:
  explicit Editor(bool resumed)
      : QLabel(resumed ? "A new version runs" : "Ready"),
        _controller(identifier(),
                    [this](int event, int number, const std::string& text) { happened(event, number, text); }),
        _notifier(_controller.fd(), QSocketNotifier::Read) {
    QObject::connect(&_notifier, &QSocketNotifier::activated, this, [this] { _controller.dispatch(); });
    setWindowTitle("Editor");
    resize(640, 400);
  }

  int update(const QStringList& paths) {
    if (paths.size() > 1) _controller.setInstaller(paths[1].toStdString());
    return _controller.update(paths.value(0).toStdString(), ownBundle());
  }

 private:
  void happened(int event, int number, const std::string& text) {
    std::printf("%s (%d)\n", text.c_str(), number);
    std::fflush(stdout);
    setText(QString::fromStdString(text));
    // A real editor asks its user about unsaved work here.
    if (event == KELTO_QUIT_REQUESTED) QCoreApplication::quit();
  }

  kelto::Controller _controller;
  QSocketNotifier _notifier;
};

}  // namespace

int main(int argc, char** argv) {
  const bool resumed = kelto_take_resume_argument(&argc, argv) != 0;
  QApplication application(argc, argv);
  Editor editor(resumed);
  editor.show();
  const auto arguments = QCoreApplication::arguments();
  if (arguments.value(1) == "update" && editor.update(arguments.mid(2)) < 0) return 1;
  return QApplication::exec();
}
