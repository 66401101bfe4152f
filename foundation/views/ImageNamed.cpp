#include "foundation/views/ImageNamed.h"

#include "foundation/views/ViewEnvironment.h"
#include "foundation/views/ViewResources.h"

namespace foundation {

std::shared_ptr<const Image> imageNamed(std::string_view name) {
  ViewResources* resources = ViewEnvironment::installed().resources;
  return resources == nullptr ? nullptr : resources->imageNamed(name);
}

}  // namespace foundation
