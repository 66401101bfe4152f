#pragma once
// The base of every view of the kit: a required size, layout put off until drawing, and a link to the controller, which is
// told when the view appears and disappears. Main thread only; see foundation/views/View.h for ownership and coordinates.
#include "foundation/views/View.h"

class KAViewController;

class KAView : public platform::View {
 public:
  // Where the view stands between two appearances, by the last callback sent.
  enum class Appearance : int { Disappeared = 0, Appearing = 1, Appeared = 2, Disappearing = 3 };

  using platform::View::View;

  // In a window, and neither the view nor an ancestor is hidden.
  [[nodiscard]] bool isVisibleOnWindow() const;
  [[nodiscard]] Appearance viewAppearance() const { return _viewAppearance; }

  // Moves the frame to the middle of the superview's bounds, to whole points; without a superview, of nothing. Animated, it
  // moves through the animation proxy even while it is not visible.
  void centerToSuperview() { centerToSuperviewAnimated(false); }
  void centerToSuperviewAnimated(bool animated);

  // Computes minRequiredSize. The base version takes the bounds as they are.
  virtual void calcSize();
  void calcSizeIfNeeded();
  void setNeedsCalcSize() { _sizeCalculated = false; }
  // Stores the size; the next calcSizeIfNeeded may still replace it.
  void setCalculatedSize(foundation::Size size) { _minRequiredSize = size; }
  // As last calculated; calculates nothing.
  [[nodiscard]] foundation::Size minRequiredSize() const { return _minRequiredSize; }

  // Take the required size; animated only while visible. The first two keep the origin, the others move it by the flexible
  // margins of the autoresizing mask.
  void sizeToFit() { sizeToFitAnimated(false); }
  void sizeToFitAnimated(bool animated);
  void sizeAndMoveToFit() { sizeAndMoveToFitAnimated(false); }
  void sizeAndMoveToFitAnimated(bool animated);

  void setBounds(const foundation::Rect& bounds) override;
  void setFrame(const foundation::Rect& frame) override;

  // Layout happens just before drawing. A subclass lays out its subviews and calls the base version.
  void setNeedsLayout();
  [[nodiscard]] bool needsLayout() const { return _needsLayout; }
  void layoutIfNeeded();
  virtual void layoutSubviews() { _needsLayout = false; }

  // Held weakly. In the responder chain the controller stands between the view and whoever follows.
  [[nodiscard]] KAViewController* viewController() const;
  void setViewController(KAViewController* controller);
  void setNextResponder(platform::Responder* responder) override;

  // Draw into the current graphics context, from drawRect; a missing image (nullptr) draws nothing.
  //
  // The caps at their own size, the fill stretched between them, all from y = 0: of `bounds` only the width counts. The
  // left cap lies over what is there; the right cap and the fill replace it.
  void drawThreePartImageInBounds_left_fill_right(const foundation::Rect& bounds, const foundation::Image* left,
                                                  const foundation::Image* fill, const foundation::Image* right);
  // Highlighted is the light set of images, otherwise the dark one; rounded draws with its caps.
  void drawHeaderBackgroundHighlighted_rounded(bool highlighted, bool rounded);

  void viewWillMoveToSuperview(platform::View* superview) override;
  void viewDidMoveToSuperview() override;
  void viewWillMoveToWindow(platform::ViewWindow* window) override;
  void viewDidMoveToWindow() override;
  void viewDidHide() override;
  void viewDidUnhide() override;
  void viewWillDraw() override;

 private:
  // Each sends its callback and moves on, when the cycle stands where it has to.
  void appearWhen(bool condition);
  void finishAppearingWhen(bool condition);
  void disappear();
  void finishDisappearing();

  platform::WeakReference<KAViewController> _viewController;
  Appearance _viewAppearance = Appearance::Disappeared;
  bool _needsLayout = false;
  bool _sizeCalculated = false;
  foundation::Size _minRequiredSize;
};
