#include "platform/linux/qt/InterfaceDescription.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QFile>
#include <QUiLoader>
#include <QVariant>
#include <algorithm>

#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/ViewHostWidget.h"

namespace platform::Linux {
namespace {

enum class TopLevel { Window, View };

// Makes the widgets of a document, in the order of the document.
class Loader final : public QUiLoader {
 public:
  Loader(const ViewContext& views, TopLevel topLevel) : Loader(views, topLevel, QCoreApplication::libraryPaths()) {}

  // Returns nullptr, and sets `cause`, if the document cannot be read.
  std::unique_ptr<QWidget> read(const std::string& path, std::string& cause) {
    QFile document(qtString(path));
    if (!document.open(QIODevice::ReadOnly)) {
      cause = document.errorString().toStdString();
      return nullptr;
    }
    std::unique_ptr<QWidget> loaded(load(&document));
    if (!loaded) cause = errorString().toStdString();
    return loaded;
  }

  // The view of the top-level widget, which does not own it. Without a share of it the widgets go.
  [[nodiscard]] std::shared_ptr<foundation::View> topLevelView() { return std::move(_topLevelView); }

  QWidget* createWidget(const QString& className, QWidget* parent, const QString& name) override {
    QWidget* widget = make(className, parent, name);
    if (widget != nullptr) widget->setObjectName(name);
    return widget;
  }

 private:
  // Designer's plug-ins bring widgets that this application does not use, and the libraries of these. The loader's
  // constructor loads them from Qt's library paths, so the paths are empty while it runs.
  Loader(const ViewContext& views, TopLevel topLevel, const QStringList& libraryPaths)
      : QUiLoader((QCoreApplication::setLibraryPaths({}), nullptr)), _views(views), _topLevel(topLevel) {
    QCoreApplication::setLibraryPaths(libraryPaths);
  }

  QWidget* make(const QString& className, QWidget* parent, const QString& name) {
    if (parent == nullptr && _topLevel == TopLevel::Window) return new WindowWidget;
    if (const auto view = makeView(className.toStdString())) return widgetFor(view, parent);
    if (className == "QProgressBar") return new ProgressBarWidget(parent);
    return QUiLoader::createWidget(className, parent, name);
  }

  [[nodiscard]] std::shared_ptr<foundation::View> makeView(const std::string& className) const {
    const auto found = std::ranges::find(_views.classes, className, &ViewClass::name);
    return found == _views.classes.end() ? nullptr : found->make();
  }

  QWidget* widgetFor(const std::shared_ptr<foundation::View>& view, QWidget* parent) {
    if (parent == nullptr)
      _topLevelView = view;
    else if (foundation::View* superview = enclosingView(parent))
      superview->addSubview(view);
    else
      return new ViewHostWidget(view, _views.runLoop, parent);
    return new ViewWidget(*view, parent);
  }

  const ViewContext& _views;
  const TopLevel _topLevel;
  std::shared_ptr<foundation::View> _topLevelView;
};

std::shared_ptr<InterfaceElement> elementOver(QWidget& widget) {
  if (auto* window = dynamic_cast<WindowWidget*>(&widget)) return std::make_shared<QtWindow>(*window);
  if (auto* label = qobject_cast<QLabel*>(&widget)) return std::make_shared<QtTextField>(*label);
  if (auto* button = qobject_cast<QAbstractButton*>(&widget)) return std::make_shared<QtButton>(*button);
  if (auto* bar = dynamic_cast<ProgressBarWidget*>(&widget)) return std::make_shared<QtProgressIndicator>(*bar);
  return nullptr;
}

// The controls in the widget, by their names.
std::vector<Outlet> controlsIn(const QWidget& topLevel) {
  std::vector<Outlet> controls;
  for (QWidget* widget : topLevel.findChildren<QWidget*>())
    if (auto element = elementOver(*widget)) controls.push_back({widget->objectName().toStdString(), std::move(element)});
  return controls;
}

std::vector<QAbstractButton*> buttonsThatTerminate(const QWidget& topLevel) {
  std::vector<QAbstractButton*> buttons;
  for (auto* button : topLevel.findChildren<QAbstractButton*>())
    if (button->property("action").toString() == "terminate:") buttons.push_back(button);
  return buttons;
}

void connectActions(const QWidget& topLevel, const std::function<void()>& terminate) {
  for (auto* button : buttonsThatTerminate(topLevel))
    QObject::connect(button, &QAbstractButton::clicked, button, [terminate] { terminate(); });
}

}  // namespace

InterfaceDescription::InterfaceDescription(std::unique_ptr<WindowWidget> window)
    : _window(std::move(window)), _outlets(controlsIn(*_window)) {
  _outlets.insert(_outlets.begin(), {_window->objectName().toStdString(), elementOver(*_window)});
}

std::unique_ptr<InterfaceDescription> InterfaceDescription::load(const std::string& path,
                                                                 const std::function<void()>& terminate, std::string& cause,
                                                                 const ViewContext& views) {
  Loader loader(views, TopLevel::Window);
  auto loaded = loader.read(path, cause);
  if (!loaded) return nullptr;
  // The loader makes every top-level widget of a window a WindowWidget.
  std::unique_ptr<WindowWidget> window(static_cast<WindowWidget*>(loaded.release()));
  window->onClose = terminate;
  window->takeDesignedWidth();
  takeGeometry(*window);
  connectActions(*window, terminate);
  return std::unique_ptr<InterfaceDescription>(new InterfaceDescription(std::move(window)));
}

std::shared_ptr<foundation::View> InterfaceDescription::loadView(const std::string& path,
                                                                 const std::function<void()>& terminate, std::string& cause,
                                                                 const ViewContext& views,
                                                                 foundation::ViewController& owner) {
  Loader loader(views, TopLevel::View);
  auto loaded = loader.read(path, cause);
  const auto view = loader.topLevelView();
  if (!loaded) return nullptr;
  if (view == nullptr) {
    cause = "its top-level widget is not a view";
    return nullptr;
  }
  const QWidget& widget = *loaded.release();  // the view's overlay owns it
  takeGeometry(widget);
  connectActions(widget, terminate);
  for (auto* inner : widget.findChildren<QWidget*>())
    if (const auto* viewWidget = dynamic_cast<ViewWidget*>(inner))
      owner.connectOutlet(inner->objectName().toStdString(), viewWidget->view().shared_from_this());
  for (const auto& [name, control] : controlsIn(widget)) {
    dynamic_cast<WidgetOverlay&>(*view->overlay()).keep(control);
    owner.connectOutlet(name, control);
  }
  return view;
}

std::string InterfaceDescription::delegateClass() const {
  return _window->property("delegateClass").toString().toStdString();
}

void InterfaceDescription::setActionsEnabled(bool enabled) const {
  for (auto* button : buttonsThatTerminate(*_window)) button->setEnabled(enabled);
}

void InterfaceDescription::connectOutlets(ApplicationDelegate& delegate) const {
  for (const auto& outlet : _outlets) delegate.connectOutlet(outlet.name, outlet.element);
}

}  // namespace platform::Linux
