#pragma once
// Images and views from the application's bundle: artwork/NAME.png with NAME@2x.png and
// NAME@3x.png, and NAME.ui. Main thread only.
#include <map>
#include <vector>

#include "foundation/views/ViewResources.h"
#include "platform/Bundle.h"
#include "platform/UserInterface.h"

namespace platform::Linux {

class QtViewResources final : public foundation::ViewResources {
 public:
  // The bundle and the classes outlive this object.
  QtViewResources(const platform::Bundle& bundle, const std::vector<ViewClass>& classes)
      : _bundle(bundle), _classes(classes) {}

  // Also remembers what is missing.
  std::shared_ptr<const foundation::Image> imageNamed(std::string_view name) override;

  // The document's top-level widget and those in it whose class is a view's become views, with their geometry, their
  // boolean properties and the number "autoresizingMask".
  std::shared_ptr<foundation::View> loadNib(std::string_view name, foundation::ViewController& owner,
                                            std::string& cause) override;

 private:
  [[nodiscard]] std::shared_ptr<const foundation::Image> load(const std::string& name) const;

  const platform::Bundle& _bundle;
  const std::vector<ViewClass>& _classes;
  std::map<std::string, std::shared_ptr<const foundation::Image>, std::less<>> _images;
};

// The view class of that name; nullptr when it is none of `classes`.
std::shared_ptr<foundation::View> makeView(const std::vector<ViewClass>& classes, std::string_view name);

}  // namespace platform::Linux
