#pragma once
// Images of the application's bundle. Main thread only.
#include <QImage>
#include <vector>

#include "foundation/graphics/Graphics.h"

namespace platform::Linux {

class QtImage final : public foundation::Image {
 public:
  // One version of the picture for each scale, smallest scale first; at least one. A version's device pixel ratio is its
  // scale.
  explicit QtImage(std::vector<QImage> versions) : _versions(std::move(versions)) {}

  [[nodiscard]] foundation::Size size() const override;
  // The smallest version that has enough pixels for the scale, or the largest there is.
  [[nodiscard]] const QImage& versionForScale(double scale) const;

 private:
  std::vector<QImage> _versions;
};

}  // namespace platform::Linux
