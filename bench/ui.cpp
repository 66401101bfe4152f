// The wizard's window: a full repaint of its face, and how smoothly the progress bar goes while a privileged job blocks the
// main thread.
#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QPainter>
#include <chrono>
#include <thread>

#include "bench/Report.h"
#include "platform/linux/qt/Display.h"
#include "platform/linux/qt/Look.h"
#include "platform/linux/qt/QtBlockingCall.h"
#include "platform/linux/qt/QtGraphicsContext.h"
#include "tests/support/PrivateDisplay.h"
#include "tests/wizard/Wizard.h"

namespace {

using bench::Report;
using platform::Linux::QtGraphicsContext;

constexpr double width = 460;
constexpr double height = 320;
constexpr double scale = 2;

void measureRepaint(Report& report) {
  QImage image(static_cast<int>(width * scale), static_cast<int>(height * scale), QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(scale);
  const auto face = std::make_shared<KMEmbeddedWindowBackgroundView>();
  face->setHasBloom(true);
  platform::ViewWindow window;
  window.setContentView(face);
  window.setSize({width, height});
  const auto repaint = [&] {
    QPainter painter(&image);
    QtGraphicsContext context(painter, {width, height}, QtGraphicsContext::Corners::Round);
    window.display(context);
  };
  const double milliseconds = 1000 * bench::inTurn({repaint}, 101).front();
  report.add("full repaint of the face at 2x", milliseconds, "ms", "bound of 2 ms", 2 / milliseconds);
}

// Notes when the widget is painted.
class PaintTimes : public QObject {
 public:
  explicit PaintTimes(QWidget& widget) { widget.installEventFilter(this); }
  bool eventFilter(QObject* /*watched*/, QEvent* event) override {
    if (event->type() == QEvent::Paint) times.push_back(std::chrono::steady_clock::now());
    return false;
  }
  std::vector<std::chrono::steady_clock::time_point> times;
};

void measureProgress(Report& report) {
  const tests::Wizard wizard("en", tests::modes.front());
  QWidget& window = wizard.window();
  window.hide();
  window.setAttribute(Qt::WA_DontShowOnScreen, false);
  window.show();
  QApplication::processEvents();
  const PaintTimes paints(*window.findChild<QWidget*>("progressBar"));
  platform::Linux::QtRunLoop runLoop;
  platform::Linux::QtBlockingCall blocking(runLoop);
  constexpr std::chrono::seconds job(3);
  blocking.run([&] { std::this_thread::sleep_for(job); });
  double gap = 0;
  for (std::size_t i = 1; i < paints.times.size(); ++i)
    gap = std::max(gap, std::chrono::duration<double, std::milli>(paints.times[i] - paints.times[i - 1]).count());
  const double rate = static_cast<double>(paints.times.size()) / static_cast<double>(job.count());
  report.add("progress bar during a job of 3 s", rate, "frames/s", "bound of 50 frames/s", rate / 50);
  report.add("longest gap between its frames", gap, "ms", "bound of 50 ms", 50 / gap);
}

}  // namespace

int main(int argc, char** argv) {
  const tests::PrivateDisplay display;
  auto environment = std::make_unique<platform::Linux::Display::StartUpEnvironment>("xcb");
  int count = 1;
  QApplication application(count, argv);
  environment.reset();
  platform::Linux::applyLook(application);
  const tests::Artwork artwork;
  Report report;
  measureRepaint(report);
  measureProgress(report);
  report.print();
  return argc < 2 || report.write(argv[1]) ? 0 : 1;
}
