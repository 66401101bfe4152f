#pragma once
// The background of the wizard window: a rounded panel with a footer band, two hairlines above it, and the content area
// above these. Main thread only.
#include "ui/KAView.h"

class KMEmbeddedWindowBackgroundView : public KAView {
 public:
  using KAView::KAView;

  // Whether the content area has the gradient, the bloom (in a view of 300 points or higher) and the dot pattern; otherwise
  // it is white. The interface description sets it before the first drawing. A change does not request a redraw.
  [[nodiscard]] bool hasBloom() const { return _hasBloom; }
  void setHasBloom(bool hasBloom) { _hasBloom = hasBloom; }
  bool setFlagForKey(bool value, std::string_view key) override;

  // Draws the whole background, whatever `dirtyRect` is. With increased contrast the content area is white and the
  // hairlines are black.
  void drawRect(const foundation::Rect& dirtyRect) override;

 private:
  void drawBloomContent(foundation::GraphicsContext& context, const foundation::Rect& content) const;

  bool _hasBloom = false;
};
