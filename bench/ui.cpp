// The wizard's window: a full repaint of its face. How smoothly its progress bar goes is measured on the installer itself.
#include <QPainter>

#include "bench/Report.h"
#include "foundation/views/ViewWindow.h"
#include "platform/linux/qt/QtGraphicsContext.h"
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
  foundation::ViewWindow window(foundation::ViewEnvironment::installed().runLoop);
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

}  // namespace

int main(int argc, char** argv) {
  const tests::Artwork artwork;
  Report report;
  measureRepaint(report);
  report.print();
  return argc < 2 || report.write(argv[1]) ? 0 : 1;
}
