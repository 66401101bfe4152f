#pragma once
// What views and view controllers take from the application's bundle. Main thread only.
#include <memory>
#include <string>
#include <string_view>

#include "foundation/graphics/Graphics.h"

namespace platform {

class View;
class ViewController;

class ViewResources {
 public:
  virtual ~ViewResources() = default;

  // The image resource of that name, from a cache; nullptr when there is none.
  virtual std::shared_ptr<const foundation::Image> imageNamed(std::string_view name) = 0;

  // The view that the interface description `name` holds, made anew for `owner`. Nothing when there is none or it cannot be
  // read; `cause` then says why.
  virtual std::shared_ptr<View> loadNib(std::string_view name, ViewController& owner, std::string& cause) = 0;
};

// imageNamed of the installed platform; nullptr also where the platform shows no views.
std::shared_ptr<const foundation::Image> imageNamed(std::string_view name);

}  // namespace platform
