#pragma once
// Image resources by name. Main thread only.
#include <memory>
#include <string_view>

#include "foundation/graphics/Graphics.h"

namespace foundation {

// The image resource `name` of the main bundle, from a cache. Returns nullptr if there is no such image, or if the
// application shows no views.
std::shared_ptr<const Image> imageNamed(std::string_view name);

}  // namespace foundation
