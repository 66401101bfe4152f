#include "platform/linux/qt/QtViewResources.h"

#include "platform/linux/qt/InterfaceDescription.h"
#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtImage.h"

namespace platform::Linux {

std::shared_ptr<const foundation::Image> QtViewResources::imageNamed(std::string_view name) {
  const auto known = _images.find(name);
  if (known != _images.end()) return known->second;
  return _images.emplace(name, load(std::string(name))).first->second;
}

std::shared_ptr<const foundation::Image> QtViewResources::load(const std::string& name) const {
  std::vector<QImage> versions;
  for (const int scale : {1, 2, 3}) {
    const auto file = "artwork/" + name + (scale == 1 ? "" : "@" + std::to_string(scale) + "x");
    const auto path = _bundle.pathForResource(file, "png");
    if (!path) continue;
    QImage version(qtString(*path));
    if (version.isNull()) continue;
    version.convertTo(QImage::Format_ARGB32_Premultiplied);
    version.setDevicePixelRatio(scale);
    versions.push_back(std::move(version));
  }
  return versions.empty() ? nullptr : std::make_shared<QtImage>(std::move(versions));
}

std::shared_ptr<foundation::View> QtViewResources::loadNib(std::string_view name, foundation::ViewController& owner,
                                                           std::string& cause) {
  if (const auto path = _bundle.pathForResource(name, "ui"))
    return InterfaceDescription::loadView(*path, _terminate, cause, _views, owner);
  cause = "the bundle " + _bundle.bundlePath() + " has no such interface description";
  return nullptr;
}

}  // namespace platform::Linux
