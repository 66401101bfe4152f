#include "ui/KMEmbeddedWindowBackgroundView.h"

#include "foundation/views/ImageNamed.h"
#include "ui/NSColor+KMColor.h"

using foundation::GraphicsContext;
using foundation::Rect;

namespace {

constexpr double cornerRadius = 5;
constexpr double contentStart = 60;  // above the footer, 58 points high, and two hairlines
constexpr double bloomStart = 61;
constexpr double lowestBloomingView = 300;

void fill(GraphicsContext& context, const foundation::Color& color, const Rect& rect) {
  context.setFillColor(color);
  context.fillRect(rect);
}

foundation::Color grey(int of255) { return NSColor::colorWithStandardWhite_alpha(static_cast<float>(of255) / 255.0F, 1); }

}  // namespace

bool KMEmbeddedWindowBackgroundView::setFlagForKey(bool value, std::string_view key) {
  if (key != "hasBloom") return KAView::setFlagForKey(value, key);
  setHasBloom(value);
  return true;
}

// From x = 0 and, for the content, up to the top of the bounds: their origin's x plays no part.
void KMEmbeddedWindowBackgroundView::drawRect(const Rect& /*dirtyRect*/) {
  GraphicsContext* context = GraphicsContext::current();
  if (context == nullptr) return;
  const Rect area = bounds();
  const double width = area.size.width;
  context->saveGraphicsState();
  context->clipToRoundedRect(area, cornerRadius, cornerRadius);
  const double line = context->hairline();
  const bool standsOut = context->increasesContrast();
  fill(*context, NSColor::embeddedWindowFooterBackgroundColor(), {{0, 0}, {width, contentStart - 2 * line}});
  fill(*context, grey(standsOut ? 0 : 232), {{0, contentStart - 2 * line}, {width, line}});
  fill(*context, grey(standsOut ? 0 : 171), {{0, contentStart - line}, {width, line}});
  const Rect content{{0, contentStart}, {width, area.origin.y + area.size.height - contentStart}};
  if (_hasBloom && !standsOut)
    drawBloomContent(*context, content);
  else
    fill(*context, foundation::Color::whiteColor(), content);
  context->restoreGraphicsState();
}

void KMEmbeddedWindowBackgroundView::drawBloomContent(GraphicsContext& context, const Rect& content) const {
  constexpr double downwards = -90;
  context.drawLinearGradient(NSColor::embeddedWindowBackgroundStartColor(), NSColor::embeddedWindowBackgroundEndColor(),
                             content, downwards);
  if (bounds().size.height >= lowestBloomingView) {
    if (const auto bloom = foundation::imageNamed("s_bloom")) {
      const foundation::Size size = bloom->size();
      context.drawImage(*bloom, {{bounds().size.width - size.width, bloomStart}, size},
                        foundation::CompositingOperation::sourceOver, 1);
    }
  }
  if (const auto dots = foundation::imageNamed("s_dot_pattern")) {
    context.setFillPattern(dots);
    context.fillPathOfRect(content);
  }
}
