#pragma once
// The view tree: the place of each view, the notifications of a change of place, and drawing. Main thread only.
//
// Coordinates are points, origin bottom-left. A superview owns its subviews and a window its content view; any other code
// that needs a view to stay alive holds a share of it. Views are always held by shared_ptr.
//
// The order of notifications, for a view and then for its subviews:
//   entering a superview   will-move-to-superview, will-move-to-window, did-move-to-window, did-move-to-superview
//   leaving it             the same four, with nullptr
//   changing superviews    leaving, then entering
// The two about windows are sent only if there is a window to enter or to leave. Hiding or showing a view notifies it and
// its subviews after the change, but only those whose visibility it changes.
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "foundation/graphics/Geometry.h"
#include "foundation/graphics/Graphics.h"
#include "foundation/views/InterfaceElement.h"
#include "foundation/views/Responder.h"

namespace foundation {

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

// Changes the frame of a view smoothly, in a quarter of a second, on the run loop of the view's window (see
// ViewEnvironment.h for a view without one). A change during another one starts from the present frame. A frame that is set
// directly during an animation stays and ends the animation.
class ViewAnimator {
 public:
  explicit ViewAnimator(View& view) : _view(view) {}

  void setFrame(const Rect& frame);
  void setFrameOrigin(Point origin);
  void setFrameSize(Size size);

 private:
  [[nodiscard]] Rect target() const;
  void animate(const Rect& target, std::function<void(View&, const Rect&)> apply);

  View& _view;
};

// Holds whatever the platform shows in front of a view, such as its controls.
class ViewOverlay {
 public:
  virtual ~ViewOverlay() = default;
};

class View : public Responder, public InterfaceElement, public std::enable_shared_from_this<View> {
 public:
  View() = default;
  explicit View(const Rect& frame) : _frame(frame), _bounds{{}, frame.size} {}
  ~View() override;

  [[nodiscard]] View* superview() const { return _superview; }
  [[nodiscard]] ViewWindow* window() const { return _window; }
  [[nodiscard]] const std::vector<std::shared_ptr<View>>& subviews() const { return _subviews; }
  // Removes the view from its superview and puts it in front of the other subviews. Its next responder is then this view.
  // Does nothing if the view would become its own ancestor.
  void addSubview(const std::shared_ptr<View>& view);
  void removeFromSuperview();
  [[nodiscard]] bool isDescendantOf(const View& view) const;  // also true for the view itself

  [[nodiscard]] bool isHidden() const { return _isHidden; }
  void setHidden(bool hidden);
  [[nodiscard]] bool isHiddenOrHasHiddenAncestor() const;

  // The frame is in the superview's coordinates, the bounds are in the view's own. Until they are set, the bounds have the
  // frame's size and their origin is (0, 0).
  [[nodiscard]] Rect frame() const { return _frame; }
  [[nodiscard]] Rect bounds() const { return _bounds; }
  virtual void setFrame(const Rect& frame);
  virtual void setBounds(const Rect& bounds);
  void setFrameOrigin(Point origin);
  void setFrameSize(Size size);  // bounds of a size of their own keep their proportion to the frame
  [[nodiscard]] ViewAnimator animator() { return ViewAnimator(*this); }

  // The parts that change when the superview's bounds change size: bits of AutoresizingMask. Flexible parts share the
  // difference along each axis evenly; without a flexible part the view keeps its frame. Restoring the superview's size
  // restores the frame, even after a size that left no room for the view.
  [[nodiscard]] unsigned autoresizingMask() const { return _autoresizingMask; }
  void setAutoresizingMask(unsigned mask) { _autoresizingMask = mask; }

  // Set by the platform for a view from an interface description, otherwise nullptr. Lives as long as the view.
  [[nodiscard]] ViewOverlay* overlay() const { return _overlay.get(); }
  void setOverlay(std::unique_ptr<ViewOverlay> overlay) { _overlay = std::move(overlay); }

  // Requests that the view is drawn at the next opportunity.
  void setNeedsDisplay(bool needed);
  [[nodiscard]] bool needsDisplay() const { return _needsDisplay; }

  // Sets a boolean property from an interface description. Returns false if the view has no such property.
  virtual bool setFlagForKey(bool value, std::string_view key);

  // Notifications. A class that overrides one calls the base version. viewWillDraw is sent to visible views only, before
  // anything is drawn; its base version passes it on to the subviews.
  virtual void viewWillMoveToSuperview(View* superview);
  virtual void viewDidMoveToSuperview();
  virtual void viewWillMoveToWindow(ViewWindow* window);
  virtual void viewDidMoveToWindow();
  virtual void viewDidHide();
  virtual void viewDidUnhide();
  virtual void viewWillDraw();

  // Draws the view, without its subviews, into the current graphics context, in the view's own coordinates.
  virtual void drawRect(const Rect& dirtyRect);

 private:
  friend class ViewAnimator;
  friend class ViewWindow;

  void tellWillMoveToWindow(ViewWindow* window);
  void tellDidMoveToWindow();
  void setWindow(ViewWindow* window);
  void tellHidden(bool hidden);
  void drawTree(GraphicsContext& context);
  void superviewGrew(Size growth);

  View* _superview = nullptr;
  ViewWindow* _window = nullptr;
  std::vector<std::shared_ptr<View>> _subviews;
  Rect _frame;
  Rect _bounds;
  bool _hasOwnBoundsSize = false;
  bool _isHidden = false;
  bool _needsDisplay = true;
  unsigned _autoresizingMask = ViewNotSizable;
  std::shared_ptr<FrameAnimation> _animation;
  std::unique_ptr<ViewOverlay> _overlay;
};

}  // namespace foundation
