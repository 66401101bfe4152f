#include "platform/linux/qt/InterfaceDescription.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QFile>
#include <QUiLoader>
#include <QVariant>

#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/QtViewResources.h"
#include "platform/linux/qt/ViewHostWidget.h"

namespace platform::Linux {
namespace {

class Loader final : public QUiLoader {
 public:
  Loader(const std::vector<ViewClass>& viewClasses, foundation::RunLoop& runLoop)
      : Loader(viewClasses, runLoop, QCoreApplication::libraryPaths()) {}

  QWidget* createWidget(const QString& className, QWidget* parent, const QString& name) override {
    QWidget* widget = make(className, parent, name);
    if (widget != nullptr) widget->setObjectName(name);
    return widget;
  }

 private:
  // Designer's plug-ins bring widgets that this application does not use, and the libraries of these. The loader's
  // constructor loads them from Qt's library paths, so there are none while it runs.
  Loader(const std::vector<ViewClass>& viewClasses, foundation::RunLoop& runLoop, const QStringList& libraryPaths)
      : QUiLoader((QCoreApplication::setLibraryPaths({}), nullptr)), _viewClasses(viewClasses), _runLoop(runLoop) {
    QCoreApplication::setLibraryPaths(libraryPaths);
  }

  QWidget* make(const QString& className, QWidget* parent, const QString& name) {
    if (parent == nullptr) return new WindowWidget;
    if (const auto view = makeView(_viewClasses, className.toStdString()))
      return new ViewHostWidget(view, _runLoop, parent);
    if (className == "QProgressBar") return new ProgressBarWidget(parent);
    return QUiLoader::createWidget(className, parent, name);
  }

  const std::vector<ViewClass>& _viewClasses;
  foundation::RunLoop& _runLoop;
};

std::shared_ptr<InterfaceElement> elementOver(QWidget& widget) {
  if (auto* window = dynamic_cast<WindowWidget*>(&widget)) return std::make_shared<QtWindow>(*window);
  if (auto* label = qobject_cast<QLabel*>(&widget)) return std::make_shared<QtTextField>(*label);
  if (auto* button = qobject_cast<QAbstractButton*>(&widget)) return std::make_shared<QtButton>(*button);
  if (auto* bar = dynamic_cast<ProgressBarWidget*>(&widget)) return std::make_shared<QtProgressIndicator>(*bar);
  return nullptr;
}

}  // namespace

std::unique_ptr<InterfaceDescription> InterfaceDescription::load(const std::string& path,
                                                                 const std::function<void()>& terminate, std::string& cause,
                                                                 foundation::RunLoop& runLoop,
                                                                 const std::vector<ViewClass>& viewClasses) {
  QFile document(qtString(path));
  if (!document.open(QIODevice::ReadOnly)) {
    cause = document.errorString().toStdString();
    return nullptr;
  }
  Loader loader(viewClasses, runLoop);
  std::unique_ptr<QWidget> loaded(loader.load(&document));
  if (!loaded) {
    cause = loader.errorString().toStdString();
    return nullptr;
  }
  // The loader makes every top-level widget a WindowWidget.
  std::unique_ptr<WindowWidget> window(static_cast<WindowWidget*>(loaded.release()));
  window->onClose = terminate;
  std::unique_ptr<InterfaceDescription> description(new InterfaceDescription(std::move(window)));
  description->makeOutlets();
  description->connectActions(terminate);
  return description;
}

std::string InterfaceDescription::delegateClass() const {
  return _window->property("delegateClass").toString().toStdString();
}

void InterfaceDescription::makeOutlets() {
  auto widgets = _window->findChildren<QWidget*>();
  widgets.prepend(_window.get());
  for (QWidget* widget : widgets) {
    auto element = elementOver(*widget);
    if (element) _outlets.push_back({widget->objectName().toStdString(), std::move(element)});
  }
}

void InterfaceDescription::connectActions(const std::function<void()>& terminate) {
  for (auto* button : _window->findChildren<QAbstractButton*>())
    if (button->property("action").toString() == "terminate:")
      QObject::connect(button, &QAbstractButton::clicked, button, [terminate] { terminate(); });
}

void InterfaceDescription::connectOutlets(ApplicationDelegate& delegate) const {
  for (const auto& outlet : _outlets) delegate.connectOutlet(outlet.name, outlet.element);
}

}  // namespace platform::Linux
