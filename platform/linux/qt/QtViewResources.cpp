#include "platform/linux/qt/QtViewResources.h"

#include <QFile>
#include <QXmlStreamReader>
#include <algorithm>

#include "foundation/views/View.h"
#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtImage.h"

namespace platform::Linux {
namespace {

// Reads <widget> elements as views. What it does not know it passes over.
class ViewReader {
 public:
  ViewReader(QXmlStreamReader& xml, const std::vector<ViewClass>& classes) : _xml(xml), _classes(classes) {}

  // From the document's start; nothing when its top-level widget is no view.
  std::shared_ptr<foundation::View> topLevelView() {
    while (_xml.readNextStartElement())
      if (_xml.name() == u"widget")
        return view(nullptr);
      else if (_xml.name() != u"ui")
        _xml.skipCurrentElement();
    return nullptr;
  }

 private:
  std::shared_ptr<foundation::View> view(const foundation::View* superview) {
    auto made = makeView(_classes, _xml.attributes().value("class").toString().toStdString());
    if (made == nullptr) {
      _xml.skipCurrentElement();
      return nullptr;
    }
    while (_xml.readNextStartElement()) {
      if (_xml.name() == u"property")
        property(*made, superview);
      else if (_xml.name() == u"widget")
        made->addSubview(view(made.get()));
      else
        _xml.skipCurrentElement();
    }
    return made;
  }

  void property(foundation::View& view, const foundation::View* superview) {
    const auto key = _xml.attributes().value("name").toString().toStdString();
    while (_xml.readNextStartElement()) {
      if (_xml.name() == u"bool")
        view.setFlagForKey(_xml.readElementText() == "true", key);
      else if (_xml.name() == u"number" && key == "autoresizingMask")
        view.setAutoresizingMask(_xml.readElementText().toUInt());
      else if (_xml.name() == u"rect" && key == "geometry")
        view.setFrame(rect(superview));
      else
        _xml.skipCurrentElement();
    }
  }

  // The document counts from the top.
  foundation::Rect rect(const foundation::View* superview) {
    std::map<std::string, double> numbers;
    while (_xml.readNextStartElement()) {
      const auto name = _xml.name().toString().toStdString();
      numbers[name] = _xml.readElementText().toDouble();
    }
    const double around = superview == nullptr ? numbers["height"] : superview->bounds().size.height;
    const double top = superview == nullptr ? 0 : numbers["y"];
    return {{superview == nullptr ? 0 : numbers["x"], around - top - numbers["height"]},
            {numbers["width"], numbers["height"]}};
  }

  QXmlStreamReader& _xml;
  const std::vector<ViewClass>& _classes;
};

}  // namespace

std::shared_ptr<foundation::View> makeView(const std::vector<ViewClass>& classes, std::string_view name) {
  const auto found = std::ranges::find(classes, name, &ViewClass::name);
  return found == classes.end() ? nullptr : found->make();
}

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

std::shared_ptr<foundation::View> QtViewResources::loadNib(std::string_view name, foundation::ViewController& /*owner*/,
                                                           std::string& cause) {
  const auto path = _bundle.pathForResource(name, "ui");
  if (!path) {
    cause = "the bundle " + _bundle.bundlePath() + " has no such interface description";
    return nullptr;
  }
  QFile document(qtString(*path));
  if (!document.open(QIODevice::ReadOnly)) {
    cause = document.errorString().toStdString();
    return nullptr;
  }
  QXmlStreamReader xml(&document);
  auto view = ViewReader(xml, _classes).topLevelView();
  if (xml.hasError()) view = nullptr;
  if (view == nullptr) cause = xml.hasError() ? xml.errorString().toStdString() : "its top-level widget is no view";
  return view;
}

}  // namespace platform::Linux
