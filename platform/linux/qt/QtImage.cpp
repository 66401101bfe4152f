#include "platform/linux/qt/QtImage.h"

#include <algorithm>

namespace platform::Linux {

foundation::Size QtImage::size() const {
  const QSizeF size = _versions.front().deviceIndependentSize();
  return {size.width(), size.height()};
}

const QImage& QtImage::versionForScale(double scale) const {
  const auto enough =
      std::ranges::find_if(_versions, [&](const QImage& version) { return version.devicePixelRatio() >= scale; });
  return enough == _versions.end() ? _versions.back() : *enough;
}

}  // namespace platform::Linux
