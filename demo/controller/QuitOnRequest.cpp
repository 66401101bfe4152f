#include "demo/controller/QuitOnRequest.h"

#include <QDBusConnection>
#include <QTimer>
#include <utility>

namespace {

QString pathFor(QString identifier) { return "/" + identifier.replace('.', '/').replace('-', '_'); }

}  // namespace

QuitOnRequest::QuitOnRequest(const QString& bundleIdentifier, std::function<void()> onQuit)
    : _bundleIdentifier(bundleIdentifier), _onQuit(std::move(onQuit)) {
  auto bus = QDBusConnection::sessionBus();
  // The object first: with the name, requests may come.
  bus.registerObject(pathFor(_bundleIdentifier), this, QDBusConnection::ExportScriptableSlots);
  bus.registerService(_bundleIdentifier);
}

QuitOnRequest::~QuitOnRequest() {
  auto bus = QDBusConnection::sessionBus();
  bus.unregisterService(_bundleIdentifier);
  bus.unregisterObject(pathFor(_bundleIdentifier));
}

void QuitOnRequest::ActivateAction(const QString& action, const QVariantList& /*parameters*/,
                                   const QVariantMap& /*platformData*/) {
  if (action == "quit") QTimer::singleShot(0, this, [this] { _onQuit(); });
}
