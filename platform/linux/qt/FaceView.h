#pragma once
// The wizard window's face, plain: what stands behind the texts, the buttons and the progress bar.
//
// Main thread only.
#include <QWidget>

namespace platform::Linux {

// A rounded panel with a grey footer band, two hairlines above it and the content area above these: white, or a light
// grey gradient when the property "hasBloom" is set. The corners are square where nothing composes translucent windows.
class FaceView final : public QWidget {
 public:
  explicit FaceView(QWidget* parent) : QWidget(parent) {}

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace platform::Linux
