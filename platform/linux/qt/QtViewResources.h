#pragma once
// Images and views from the application's bundle: artwork/NAME.png with NAME@2x.png and NAME@3x.png, and NAME.ui.
//
// Main thread only.
#include <functional>
#include <map>
#include <string>

#include "foundation/views/ViewResources.h"
#include "platform/Bundle.h"
#include "platform/linux/qt/InterfaceDescription.h"

namespace platform::Linux {

class QtViewResources final : public foundation::ViewResources {
 public:
  // The action "terminate:" of a control in a nib calls `terminate`. The bundle outlives this object.
  QtViewResources(const platform::Bundle& bundle, ViewContext views, std::function<void()> terminate)
      : _bundle(bundle), _views(std::move(views)), _terminate(std::move(terminate)) {}

  // Remembers missing images too.
  std::shared_ptr<const foundation::Image> imageNamed(std::string_view name) override;
  std::shared_ptr<foundation::View> loadNib(std::string_view name, foundation::ViewController& owner,
                                            std::string& cause) override;

 private:
  [[nodiscard]] std::shared_ptr<const foundation::Image> load(const std::string& name) const;

  const platform::Bundle& _bundle;
  const ViewContext _views;
  const std::function<void()> _terminate;
  std::map<std::string, std::shared_ptr<const foundation::Image>, std::less<>> _images;
};

}  // namespace platform::Linux
