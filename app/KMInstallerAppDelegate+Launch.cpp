// The delegate at launch: parameters, the controller's bundle, and the wizard window.
#include <cmath>

#include "app/Branding.h"
#include "app/InstallerTexts.h"
#include "app/KMInstallerAppDelegate.h"
#include "protocol/LaunchArguments.h"

namespace {

// Points. In update mode the window keeps the height of its layout.
constexpr double installHeight = 206.0;
// Raises the window above the true centre of the controller's window.
constexpr double raisedBy = 6.0;

// Half the difference, rounded down after conversion to single precision.
double flooredHalf(double difference) { return std::floor(static_cast<float>(difference * 0.5)); }

// A path as it was passed. A value that is not text still counts as given: as an empty path.
std::optional<std::string> pathForKey(const platform::UserDefaults& defaults, std::string_view key) {
  if (!defaults.objectForKey(key)) return std::nullopt;
  return defaults.stringForKey(key).value_or("");
}

std::string withoutEvery(std::string text, std::string_view unwanted) {
  for (auto place = text.find(unwanted); place != std::string::npos; place = text.find(unwanted, place))
    text.erase(place, unwanted.size());
  return text;
}

template <class Element>
void connect(const std::shared_ptr<platform::InterfaceElement>& element, std::weak_ptr<Element>& outlet) {
  outlet = std::dynamic_pointer_cast<Element>(element);
}

}  // namespace

void KMInstallerAppDelegate::connectOutlet(std::string_view name,
                                           const std::shared_ptr<platform::InterfaceElement>& element) {
  if (name == "window") connect(element, _window);
  if (name == "titleText") connect(element, _titleText);
  if (name == "bodyText") connect(element, _bodyText);
  if (name == "cancelButton") connect(element, _cancelButton);
  if (name == "nextButton") connect(element, _nextButton);
  if (name == "progressBar") connect(element, _progressBar);
}

// Nothing is shown in a wrong name: without a brand the run is over.
bool KMInstallerAppDelegate::readBranding() {
  platform::Failure failure;
  auto branding = brandingOf(_platform, failure);
  if (branding)
    _branding = std::move(*branding);
  else
    _platform.report.fail(failure);
  return branding.has_value();
}

void KMInstallerAppDelegate::readLaunchParameters() {
  const auto& defaults = _platform.standardUserDefaults;
  _srcPath = pathForKey(defaults, protocol::sourcePathArgument);
  _trashPath = pathForKey(defaults, protocol::trashPathArgument);
  _isUpdate = defaults.boolForKey(protocol::isUpdateArgument);
  _isUninstall = _trashPath.has_value() && !_srcPath.has_value();
}

void KMInstallerAppDelegate::readControllerBundle() {
  const auto path = _srcPath ? _srcPath : _trashPath;
  const auto bundle = path ? _platform.bundles.bundleWithPath(*path) : nullptr;
  if (bundle == nullptr) return;
  _bundleId = bundle->bundleIdentifier();
  _bundleName = bundle->infoString("CFBundleName");
}

void KMInstallerAppDelegate::placeWindow() {
  const auto window = _window.lock();
  if (window == nullptr) return;
  if (!_isUpdate) {
    foundation::Rect frame = window->frame();
    frame.size.height = installHeight;
    window->setFrame(frame, false);
  }
  const auto text = _platform.standardUserDefaults.stringForKey(protocol::mainFrameArgument).value_or("");
  const foundation::Rect main = foundation::rectFromString(withoutEvery(text, "r: "));
  if (main.isEmpty()) {
    window->center();
  } else {
    const foundation::Size own = window->frame().size;
    window->setFrameOrigin({main.origin.x + flooredHalf(main.size.width - own.width),
                            flooredHalf(main.size.height - own.height) + main.origin.y + raisedBy});
  }
  window->setTitle(_platform.bundles.mainBundle().infoString("CFBundleName").value_or(""));
}

void KMInstallerAppDelegate::fillTexts() {
  const auto& texts = _isUpdate      ? InstallerTexts::update
                      : _isUninstall ? InstallerTexts::uninstall
                                     : InstallerTexts::install;
  if (const auto field = _titleText.lock()) field->setStringValue(localized(texts.title));
  if (const auto field = _bodyText.lock()) field->setStringValue(localized(texts.body));
  if (const auto button = _cancelButton.lock()) button->setTitle(localized(InstallerTexts::cancel));
  if (const auto button = _nextButton.lock()) button->setTitle(localized(texts.nextButton));
}
