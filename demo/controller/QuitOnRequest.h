#pragma once
// The controller's side of being asked to quit: the application action "quit" under its bundle identifier on the session
// bus.
//
// Main thread only.
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <functional>

// Owns the name, and answers org.freedesktop.Application at the path that follows from it ("/com/kelto/macController") for
// as long as it lives. The answer goes out before `onQuit` runs: who asks does not wait while the application asks its user
// about unsaved work. Where the name is taken, or there is no bus, the application can still be asked through its windows.
class QuitOnRequest final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

 public:
  QuitOnRequest(const QString& bundleIdentifier, std::function<void()> onQuit);
  ~QuitOnRequest() override;

 public Q_SLOTS:
  // Only the action "quit" is known; parameters and platform data are of no effect.
  Q_SCRIPTABLE void ActivateAction(const QString& action, const QVariantList& parameters, const QVariantMap& platformData);

 private:
  const QString _bundleIdentifier;
  const std::function<void()> _onQuit;
};
