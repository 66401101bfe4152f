#pragma once
// Images and interface descriptions of the application's bundle. Main thread only.
#include <memory>
#include <string>
#include <string_view>

#include "foundation/graphics/Graphics.h"

namespace foundation {

class View;
class ViewController;

class ViewResources {
 public:
  virtual ~ViewResources() = default;

  // The image resource of that name, from a cache. Returns nullptr if there is no such image.
  virtual std::shared_ptr<const Image> imageNamed(std::string_view name) = 0;

  // Makes the view that the interface description `name` holds, with its inner views and controls, and connects the outlets
  // of `owner`. Returns nullptr, and sets `cause`, if there is no such description or it cannot be read.
  virtual std::shared_ptr<View> loadNib(std::string_view name, ViewController& owner, std::string& cause) = 0;
};

}  // namespace foundation
