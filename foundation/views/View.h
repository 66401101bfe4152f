#pragma once
// The view tree: where views stand, when they are told of it, and when they draw. Main thread only.
//
// Coordinates are points, origin bottom-left. A superview owns its subviews, a window its content view; everyone else who
// needs a view to stay holds a share of it. Views are always held by shared_ptr.
//
// The order of notifications, for a view and then for what is in it:
//   entering a superview   will-move-to-superview, will-move-to-window, did-move-to-window, did-move-to-superview
//   leaving it             the same four, with nullptr
//   changing superviews    leaving, then entering
// The two about windows are sent only when there is a window to enter or to leave. A view that is hidden or shown, itself
// or by an ancestor, is told after the change, and only when it makes a difference to it.
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "foundation/graphics/Geometry.h"
#include "foundation/graphics/Graphics.h"
#include "foundation/views/Responder.h"

namespace platform {

class FrameAnimation;
class View;
class ViewWindow;

// Bits of View::autoresizingMask.
enum AutoresizingMask : unsigned {
  ViewNotSizable = 0,
  ViewMinXMargin = 1,  // the left margin is flexible
  ViewWidthSizable = 2,
  ViewMaxXMargin = 4,  // right
  ViewMinYMargin = 8,  // bottom
  ViewHeightSizable = 16,
  ViewMaxYMargin = 32,  // top
};

// Stands for a view whose frame is to change smoothly, in a quarter of a second. A change during another starts from where
// the view is; a frame that is set directly meanwhile stays, and ends the animation.
class ViewAnimator {
 public:
  explicit ViewAnimator(View& view) : _view(view) {}

  void setFrame(const foundation::Rect& frame);
  void setFrameOrigin(foundation::Point origin);
  void setFrameSize(foundation::Size size);

 private:
  [[nodiscard]] foundation::Rect target() const;
  void animate(const foundation::Rect& target, std::function<void(View&, const foundation::Rect&)> apply);

  View& _view;
};

class View : public Responder, public std::enable_shared_from_this<View> {
 public:
  View() = default;
  explicit View(const foundation::Rect& frame) : _frame(frame), _bounds{{}, frame.size} {}
  ~View() override;

  [[nodiscard]] View* superview() const { return _superview; }
  [[nodiscard]] ViewWindow* window() const { return _window; }
  [[nodiscard]] const std::vector<std::shared_ptr<View>>& subviews() const { return _subviews; }
  // Takes the view from where it is and puts it in front of the other subviews; its next responder is then this view.
  // Without effect when it would make the view its own ancestor.
  void addSubview(const std::shared_ptr<View>& view);
  void removeFromSuperview();
  [[nodiscard]] bool isDescendantOf(const View& view) const;  // or that view itself

  [[nodiscard]] bool isHidden() const { return _isHidden; }
  void setHidden(bool hidden);
  [[nodiscard]] bool isHiddenOrHasHiddenAncestor() const;

  // The frame is in the superview's coordinates, the bounds in the view's own: of the frame's size and at the origin until
  // they are set.
  [[nodiscard]] foundation::Rect frame() const { return _frame; }
  [[nodiscard]] foundation::Rect bounds() const { return _bounds; }
  virtual void setFrame(const foundation::Rect& frame);
  virtual void setBounds(const foundation::Rect& bounds);
  void setFrameOrigin(foundation::Point origin);
  void setFrameSize(foundation::Size size);  // bounds of a size of their own keep their proportion to the frame
  [[nodiscard]] ViewAnimator animator() { return ViewAnimator(*this); }

  // What becomes wider or narrower with the bounds of the superview, by AutoresizingMask. What is flexible along an axis
  // shares the change evenly; with nothing flexible the view stays where it is. Going back to the old size brings back the
  // old frame, also after a size that leaves the view none.
  [[nodiscard]] unsigned autoresizingMask() const { return _autoresizingMask; }
  void setAutoresizingMask(unsigned mask) { _autoresizingMask = mask; }

  // Asks for the view to be drawn at the next opportunity.
  void setNeedsDisplay(bool needed);
  [[nodiscard]] bool needsDisplay() const { return _needsDisplay; }

  // A property that an interface description sets. False when the view has no such property.
  virtual bool setFlagForKey(bool value, std::string_view key);

  // Notifications, each overridable; what overrides one calls the base version. viewWillDraw reaches visible views only,
  // before anything is drawn, and its base version passes it on to the subviews.
  virtual void viewWillMoveToSuperview(View* superview);
  virtual void viewDidMoveToSuperview();
  virtual void viewWillMoveToWindow(ViewWindow* window);
  virtual void viewDidMoveToWindow();
  virtual void viewDidHide();
  virtual void viewDidUnhide();
  virtual void viewWillDraw();

  // Draws the view, without its subviews, into the current graphics context, in its own coordinates.
  virtual void drawRect(const foundation::Rect& dirtyRect);

 private:
  friend class ViewAnimator;
  friend class ViewWindow;

  void tellWillMoveToWindow(ViewWindow* window);
  void tellDidMoveToWindow();
  void setWindow(ViewWindow* window);
  void tellHidden(bool hidden);
  void drawTree(foundation::GraphicsContext& context);
  void superviewGrew(foundation::Size growth);

  View* _superview = nullptr;
  ViewWindow* _window = nullptr;
  std::vector<std::shared_ptr<View>> _subviews;
  foundation::Rect _frame;
  foundation::Rect _bounds;
  bool _hasOwnBoundsSize = false;
  bool _isHidden = false;
  bool _needsDisplay = true;
  unsigned _autoresizingMask = ViewNotSizable;
  std::shared_ptr<FrameAnimation> _animation;
};

// What a view tree hangs in: a place in a window of the platform, which sets the two hooks.
class ViewWindow final : public Responder {
 public:
  ViewWindow();
  ~ViewWindow() override;

  // The content view fills the window and stands in a view of the window's own, so it has a superview. nullptr takes it
  // away.
  [[nodiscard]] View* contentView() const;
  void setContentView(const std::shared_ptr<View>& view);
  void setSize(foundation::Size size);

  // Makes the order in which the keyboard reaches the views anew.
  void recalculateKeyViewLoop();

  // Tells the visible views that they will draw and draws them.
  void display(foundation::GraphicsContext& context);

  std::function<void()> onNeedsDisplay;
  std::function<void()> onRecalculateKeyViewLoop;

 private:
  std::shared_ptr<View> _root = std::make_shared<View>();
};

}  // namespace platform
