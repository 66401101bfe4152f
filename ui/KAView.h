#pragma once
// The base of every view of the kit: a required size, layout deferred until drawing, and a link to the controller, which it
// notifies of appearing and disappearing. Main thread only; see foundation/views/View.h for ownership and coordinates.
#include "foundation/views/View.h"

class KAViewController;

class KAView : public foundation::View {
 public:
  // The state of the appearance cycle, named after the last callback sent.
  enum class Appearance : int { Disappeared = 0, Appearing = 1, Appeared = 2, Disappearing = 3 };

  using foundation::View::View;

  // True if the view is in a window and neither it nor an ancestor is hidden.
  [[nodiscard]] bool isVisibleOnWindow() const;
  [[nodiscard]] Appearance viewAppearance() const { return _viewAppearance; }

  // Moves the frame to the middle of the superview's bounds, rounded to whole points. Without a superview their size counts
  // as zero. Animated, the frame moves through the animation proxy even if the view is not visible.
  void centerToSuperview() { centerToSuperviewAnimated(false); }
  void centerToSuperviewAnimated(bool animated);

  // Computes minRequiredSize. The base version takes the present size of the bounds.
  virtual void calcSize();
  void calcSizeIfNeeded();
  void setNeedsCalcSize() { _sizeCalculated = false; }
  // Stores the size; the next calcSizeIfNeeded may still replace it.
  void setCalculatedSize(foundation::Size size) { _minRequiredSize = size; }
  // The size as last calculated. Calculates nothing.
  [[nodiscard]] foundation::Size minRequiredSize() const { return _minRequiredSize; }

  // Give the view its required size, animated only if it is visible. The first two keep the origin; the others move it by
  // the flexible margins of the autoresizing mask.
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

  // Held weakly. In the responder chain the controller stands between the view and the responder that follows.
  [[nodiscard]] KAViewController* viewController() const;
  void setViewController(KAViewController* controller);
  void setNextResponder(foundation::Responder* responder) override;

  // For use in drawRect: draws into the current graphics context. A missing image (nullptr) draws nothing.
  //
  // Draws the caps at their own size and the fill stretched between them, all from y = 0. Only the width of `bounds`
  // counts. The left cap is drawn over the background; the right cap and the fill replace it.
  void drawThreePartImageInBounds_left_fill_right(const foundation::Rect& bounds, const foundation::Image* left,
                                                  const foundation::Image* fill, const foundation::Image* right);
  // `highlighted` chooses the light set of images, otherwise the dark one; `rounded` adds its caps.
  void drawHeaderBackgroundHighlighted_rounded(bool highlighted, bool rounded);

  void viewWillMoveToSuperview(foundation::View* superview) override;
  void viewDidMoveToSuperview() override;
  void viewWillMoveToWindow(foundation::ViewWindow* window) override;
  void viewDidMoveToWindow() override;
  void viewDidHide() override;
  void viewDidUnhide() override;
  void viewWillDraw() override;

 private:
  // Each sends its callback and moves the cycle on, if the cycle is in the state for it.
  void appearWhen(bool condition);
  void finishAppearingWhen(bool condition);
  void disappear();
  void finishDisappearing();

  foundation::WeakReference<KAViewController> _viewController;
  Appearance _viewAppearance = Appearance::Disappeared;
  bool _needsLayout = false;
  bool _sizeCalculated = false;
  foundation::Size _minRequiredSize;
};
