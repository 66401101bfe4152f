#pragma once
// The place in a window of the platform that a view tree stands in. Main thread only.
#include <functional>
#include <memory>

#include "foundation/dispatch/RunLoop.h"
#include "foundation/views/View.h"

namespace foundation {

// The platform sets the two hooks.
class ViewWindow final : public Responder {
 public:
  // The run loop drives the animations and the delayed requests of the views in this window. It outlives the window.
  explicit ViewWindow(RunLoop& runLoop);
  ~ViewWindow() override;

  [[nodiscard]] RunLoop& runLoop() const { return _runLoop; }

  // The content view fills the window. It stands in a view of the window's own, so it has a superview. nullptr removes it.
  [[nodiscard]] View* contentView() const;
  void setContentView(const std::shared_ptr<View>& view);
  void setSize(Size size);

  // Computes anew the order in which the keyboard reaches the views.
  void recalculateKeyViewLoop();
  // Calls recalculateKeyViewLoop on the next turn of the run loop, once for any number of requests before it. Leaves other
  // delayed calls of this window alone.
  void setNeedsRecalculateKeyViewLoop();

  // Tells the visible views that they will draw, then draws them.
  void display(GraphicsContext& context);

  std::function<void()> onNeedsDisplay;
  std::function<void()> onRecalculateKeyViewLoop;

 private:
  RunLoop& _runLoop;
  const char _keyViewLoopRequest = 0;  // its address is the target of this one request, so that no other is cancelled
  std::shared_ptr<View> _root = std::make_shared<View>();
};

}  // namespace foundation
