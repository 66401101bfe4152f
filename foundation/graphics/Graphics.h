#pragma once
// Drawing: images, and the context that a view draws into. Main thread only.
//
// Coordinates are points, origin bottom-left, y upwards. A rectangle that is empty (a negative or zero width or height)
// draws nothing in every operation.
#include <memory>
#include <string_view>
#include <utility>

#include "foundation/graphics/Color.h"
#include "foundation/graphics/Geometry.h"

namespace foundation {

// A picture, with versions for several scales where the artwork has them.
class Image {
 public:
  virtual ~Image() = default;
  [[nodiscard]] virtual Size size() const = 0;  // in points, whatever the scale
};

// How a drawing combines with the picture below it.
enum class CompositingOperation { copy, sourceOver };  // replaces it, transparency included; is laid over it

class GraphicsContext {
 public:
  virtual ~GraphicsContext() = default;

  // The graphics state is the clip, the fill colour and the coordinates. Calls come in pairs and nest.
  virtual void saveGraphicsState() = 0;
  virtual void restoreGraphicsState() = 0;

  virtual void translateBy(Point offset) = 0;
  virtual void scaleBy(double horizontal, double vertical) = 0;

  // Nothing is drawn outside any of the clips of the graphics state.
  virtual void clipToRect(const Rect& rect) = 0;
  virtual void clipToRoundedRect(const Rect& rect, double horizontalRadius, double verticalRadius) = 0;

  // The colour or pattern of both fills. A pattern repeats the image from the origin of the window, wherever the filled
  // view is.
  virtual void setFillColor(const Color& color) = 0;
  virtual void setFillPattern(const std::shared_ptr<const Image>& image) = 0;

  // The plain fill: copies.
  virtual void fillRect(const Rect& rect) = 0;
  // The path fill: is laid over the picture.
  virtual void fillPathOfRect(const Rect& rect) = 0;

  // Degrees count counter-clockwise from the horizontal: at 0 the start is on the left, at -90 it is at the top. Start and
  // end colour meet the corners of the rectangle. Is laid over the picture.
  virtual void drawLinearGradient(const Color& start, const Color& end, const Rect& rect, double degrees) = 0;

  // The thickness, in points, of a line meant to be one point thick: whole pixels of the device, one or an even number, so
  // that two such lines side by side are equal at every scale.
  [[nodiscard]] virtual double hairline() const { return 1; }

  // Whether the user needs lines and letters to stand out more than they are designed to.
  [[nodiscard]] virtual bool increasesContrast() const { return false; }

  // The whole image, stretched into the rectangle; `fraction` is its opacity.
  virtual void drawImage(const Image& image, const Rect& rect, CompositingOperation operation, double fraction) = 0;

  // The context that views draw into now; nullptr outside of drawing.
  static GraphicsContext* current();

  // Makes a context the current one while this object lives. Nests.
  class Focus {
   public:
    explicit Focus(GraphicsContext& context);
    ~Focus();
    Focus(const Focus&) = delete;
    Focus& operator=(const Focus&) = delete;

   private:
    GraphicsContext* _before;
  };
};

// Where a gradient at an angle begins and ends, as drawLinearGradient says.
std::pair<Point, Point> gradientAxis(const Rect& rect, double degrees);

}  // namespace foundation
