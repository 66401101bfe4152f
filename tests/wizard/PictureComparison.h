#pragma once
// Two pictures of the same thing, pixel by pixel.
#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cstdlib>

namespace tests {

// How far apart the same channel of two pixels may be, of 255: processors round colours differently, by one or two.
inline constexpr int channelTolerance = 3;

struct Comparison {
  int differingPixels = 0;
  int largestDifference = 0;
  QImage sideBySide;  // what is expected, what there is, and where it differs, in red over a pale copy
};

inline int distance(QRgb a, QRgb b) {
  return std::max({std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b)),
                   std::abs(qAlpha(a) - qAlpha(b))});
}

// A pixel that only one of the pictures has differs completely.
inline Comparison compare(QImage expected, QImage found) {
  for (QImage* image : {&expected, &found}) {
    image->setDevicePixelRatio(1);
    image->convertTo(QImage::Format_ARGB32_Premultiplied);
  }
  const QSize size = expected.size().expandedTo(found.size());
  Comparison result;
  QImage where = expected.copy(QRect({}, size));
  QPainter(&where).fillRect(where.rect(), QColor(255, 255, 255, 200));
  for (int y = 0; y < size.height(); ++y)
    for (int x = 0; x < size.width(); ++x) {
      const bool isInBoth = expected.valid(x, y) && found.valid(x, y);
      const int difference = isInBoth ? distance(expected.pixel(x, y), found.pixel(x, y)) : 255;
      result.largestDifference = std::max(result.largestDifference, difference);
      if (difference <= channelTolerance) continue;
      ++result.differingPixels;
      where.setPixelColor(x, y, Qt::red);
    }
  constexpr int gap = 16;
  result.sideBySide = QImage(3 * size.width() + 4 * gap, size.height() + 2 * gap, QImage::Format_RGB32);
  result.sideBySide.fill(QColor(112, 122, 134));
  QPainter painter(&result.sideBySide);
  int left = gap;
  for (const QImage& image : {expected, found, where}) {
    painter.drawImage(left, gap, image);
    left += size.width() + gap;
  }
  return result;
}

}  // namespace tests
